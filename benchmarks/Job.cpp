#include <benchmarks/Job.h>

#include <utility>

namespace Bench
{
namespace
{

std::vector<Job>& Jobs()
{
    static std::vector<Job> jobs;
    return jobs;
}

} // namespace

Job& Job::Add(const std::string& name, Target target)
{
    Jobs().push_back(Job(name, target));
    return Jobs().back();
}

const std::vector<Job>& Job::All()
{
    return Jobs();
}

Job::Job(const std::string& name, Target target) : m_name(name), m_target(target)
{
}

Job& Job::Ours(Body body)
{
    return Register(Role::Ours, "ours", std::move(body));
}

Job& Job::Alternative(const std::string& name, Body body)
{
    return Register(Role::Alternative, name, std::move(body));
}

Job& Job::Floor(const std::string& name, Body body)
{
    return Register(Role::Floor, name, std::move(body));
}

Job& Job::Threads(int count)
{
    m_threads = count;
    return *this;
}

Job& Job::Operations(int count)
{
    m_operations = count;
    return *this;
}

Job& Job::OwnClock()
{
    m_ownClock = true;
    return *this;
}

Job& Job::BytesAnOperation(double bytes)
{
    m_bytes = bytes;
    return *this;
}

const std::string& Job::Name() const
{
    return m_name;
}

const Target& Job::Wanted() const
{
    return m_target;
}

const std::vector<Variant>& Job::Variants() const
{
    return m_variants;
}

double Job::Bytes() const
{
    return m_bytes;
}

Job& Job::Register(Role role, const std::string& name, Body body)
{
    const std::string id = m_name + " | " + name;
    benchmark::internal::Benchmark* const registered = benchmark::RegisterBenchmark(id.c_str(), std::move(body));
    registered->Threads(m_threads);
    if (m_operations > 0)
    {
        registered->Iterations(m_operations);
    }
    if (m_ownClock)
    {
        registered->UseManualTime();
    }
    else
    {
        registered->UseRealTime();
    }
    m_variants.push_back({role, name, id});
    return *this;
}

} // namespace Bench

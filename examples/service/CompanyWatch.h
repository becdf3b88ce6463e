#pragma once

#include <UtilsLib/threading/Thread.h>

#include <string>

/// Keeps an eye on a company's data: logs how much of it there is, at first and whenever that has changed.
class CompanyWatch : public UtilsLib::Thread
{
public:
    explicit CompanyWatch(std::string company);
    CompanyWatch(const CompanyWatch&) = delete;
    CompanyWatch& operator=(const CompanyWatch&) = delete;
    ~CompanyWatch();

private:
    void ThreadProc() override;
    void Look();

    std::string m_company;
    std::string m_seen; // what was logged last
};

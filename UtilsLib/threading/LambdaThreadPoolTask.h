#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/threading/TaskBase.h>

#include <functional>

namespace UtilsLib
{

/// A task that calls a callable:
/// `pool.Submit(new LambdaThreadPoolTask([path] { Compress(path); }));`
class UTILSLIB_API LambdaThreadPoolTask : public TaskBase
{
public:
    /// `work` may be empty.
    explicit LambdaThreadPoolTask(std::function<void()> work);
    /// Copies the work and the pool.
    LambdaThreadPoolTask(const LambdaThreadPoolTask& other);
    /// Takes the work of `other`, which is left with none.
    LambdaThreadPoolTask(LambdaThreadPoolTask&& other) noexcept;
    /// Copies the work and the pool.
    LambdaThreadPoolTask& operator=(const LambdaThreadPoolTask& other);
    /// Takes the work of `other`, which is left with none.
    LambdaThreadPoolTask& operator=(LambdaThreadPoolTask&& other) noexcept;
    ~LambdaThreadPoolTask() override;

    /// Calls the work; does nothing, without an error, when there is none: meant so.
    void Run() override;

private:
    std::function<void()> m_work;
};

} // namespace UtilsLib

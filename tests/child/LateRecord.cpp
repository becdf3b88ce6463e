// A library that is destroyed after the logger and has gRPC log once more then, as gRPC itself may.
#include <suite/DataServicesNative.h>

#include <windows.h>

namespace
{

class LateRecord
{
public:
    ~LateRecord()
    {
        const HMODULE services = GetModuleHandleA("Corvane.UK.Ledgrix.Data.Services.NativeV32.dll");
        if (services != nullptr)
        {
            gpr_log_func_args record = {"late.cc", 1, GPR_LOG_SEVERITY_ERROR, "too late"};
            const auto emit = reinterpret_cast<decltype(&EmitGrpcLogRecord)>(
                reinterpret_cast<void*>(GetProcAddress(services, "EmitGrpcLogRecord")));
            if (!emit(&record))
            {
                TerminateProcess(GetCurrentProcess(), 6); // the routing is what this is about
            }
        }
    }
};

const LateRecord g_lateRecord;

} // namespace

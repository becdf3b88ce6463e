#include <UtilsLib/system/MessageFilterSwitch.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/FieldsOf.h>

#include <gtest/gtest.h>

#include <objbase.h>

#include <type_traits>

using UtilsLib::MessageFilterSwitch;

namespace
{

/// A filter that only counts its references; it is no heap object.
class Filter final : public IMessageFilter
{
public:
    virtual ~Filter() = default;
    HRESULT WINAPI QueryInterface(const IID& id, void** object) override
    {
        if (id != IID_IUnknown && id != IID_IMessageFilter)
        {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *object = static_cast<IMessageFilter*>(this);
        return S_OK;
    }
    ULONG WINAPI AddRef() override
    {
        return ++references;
    }
    ULONG WINAPI Release() override
    {
        return --references;
    }
    DWORD WINAPI HandleInComingCall(DWORD, HTASK, DWORD, LPINTERFACEINFO) override
    {
        return SERVERCALL_ISHANDLED;
    }
    DWORD WINAPI RetryRejectedCall(HTASK, DWORD, DWORD) override
    {
        return 0;
    }
    DWORD WINAPI MessagePending(HTASK, DWORD, DWORD) override
    {
        return PENDINGMSG_WAITDEFPROCESS;
    }

    ULONG references = 0;
};

/// The thread's filter, which stays registered.
IMessageFilter* Current()
{
    IMessageFilter* current = nullptr;
    EXPECT_EQ(CoRegisterMessageFilter(nullptr, &current), S_OK);
    EXPECT_EQ(CoRegisterMessageFilter(current, nullptr), S_OK);
    if (current != nullptr)
    {
        current->Release();
    }
    return current;
}

class MessageFilterSwitchTest : public testing::Test
{
protected:
    MessageFilterSwitchTest()
    {
        EXPECT_EQ(CoInitialize(nullptr), S_OK);
    }
    ~MessageFilterSwitchTest() override
    {
        CoRegisterMessageFilter(nullptr, nullptr);
        EXPECT_EQ(m_filter.references, 0u);
        EXPECT_EQ(m_other.references, 0u);
        CoUninitialize();
    }

    Filter m_filter;
    Filter m_other;
};

struct Fields
{
    IMessageFilter* previous;
};

} // namespace

TEST_F(MessageFilterSwitchTest, TheFilterIsAwayForTheObjectsLifeAndThenBack)
{
    ASSERT_EQ(CoRegisterMessageFilter(&m_filter, nullptr), S_OK);
    {
        const MessageFilterSwitch without;
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(TestSupport::FieldsOf<Fields>(without).previous, &m_filter);
        EXPECT_EQ(m_filter.references, 1u); // the object's own
    }
    EXPECT_EQ(Current(), &m_filter);
    EXPECT_EQ(m_filter.references, 1u); // the registration's
}

TEST_F(MessageFilterSwitchTest, AFilterThatWasRegisteredMeanwhileIsDiscarded)
{
    ASSERT_EQ(CoRegisterMessageFilter(&m_filter, nullptr), S_OK);
    {
        const MessageFilterSwitch without;
        ASSERT_EQ(CoRegisterMessageFilter(&m_other, nullptr), S_OK);
    }
    EXPECT_EQ(Current(), &m_filter);
    EXPECT_EQ(m_other.references, 0u);
}

TEST_F(MessageFilterSwitchTest, WithoutAFilterBeforeThereIsNoneAfterwards)
{
    {
        const MessageFilterSwitch without;
        EXPECT_EQ(TestSupport::FieldsOf<Fields>(without).previous, nullptr);
        ASSERT_EQ(CoRegisterMessageFilter(&m_other, nullptr), S_OK);
    }
    EXPECT_EQ(Current(), nullptr);
}

TEST_F(MessageFilterSwitchTest, SwitchesMayBeNested)
{
    ASSERT_EQ(CoRegisterMessageFilter(&m_filter, nullptr), S_OK);
    {
        const MessageFilterSwitch outer;
        {
            const MessageFilterSwitch inner;
        }
        EXPECT_EQ(Current(), nullptr);
    }
    EXPECT_EQ(Current(), &m_filter);
}

TEST(MessageFilterSwitchThreadTest, AThreadThatCannotHaveFiltersIsLeftAlone)
{
    {
        const MessageFilterSwitch withoutCom;
        EXPECT_EQ(TestSupport::FieldsOf<Fields>(withoutCom).previous, nullptr);
    }
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    {
        const MessageFilterSwitch multithreaded;
        EXPECT_EQ(TestSupport::FieldsOf<Fields>(multithreaded).previous, nullptr);
    }
    CoUninitialize();
    static_assert(!std::is_copy_constructible_v<MessageFilterSwitch> &&
                  !std::is_copy_assignable_v<MessageFilterSwitch>);
}

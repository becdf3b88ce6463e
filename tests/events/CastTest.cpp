#include <UtilsLib/events/Cast.h>
#include <UtilsLib/events/Event.h>

#include <tests/support/InCapitals.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <string>
#include <type_traits>

using TestSupport::InCapitals;
using UtilsLib::Cast;
using namespace std::string_literals;

namespace
{

struct Row
{
    int value;
    int enumerator;
    std::string name;
    std::string lowerCase;
};

const Row kScopes[] = {
    {1, UtilsLib::EventScope_DataService, "EventScope_DataService", "eventscope_dataservice"},
};
const Row kZones[] = {
    {2, UtilsLib::EventZone_Customer_Ledger, "EventZone_Customer_Ledger", "eventzone_customer_ledger"},
    {3, UtilsLib::EventZone_Invoices_Ledger, "EventZone_Invoices_Ledger", "eventzone_invoices_ledger"},
    {4, UtilsLib::EventZone_Purchase_Ledger, "EventZone_Purchase_Ledger", "eventzone_purchase_ledger"},
    {5, UtilsLib::EventZone_BankCloud, "EventZone_BankCloud", "eventzone_bankcloud"},
    {6, UtilsLib::EventZone_ConnectedBridge_CompanyDetails, "EventZone_ConnectedBridge_CompanyDetails",
     "eventzone_connectedbridge_companydetails"},
    {7, UtilsLib::EventZone_InvoicePayments, "EventZone_InvoicePayments", "eventzone_invoicepayments"},
    {8, UtilsLib::EventZone_Drive, "EventZone_Drive", "eventzone_drive"},
    {9, UtilsLib::EventZone_InvoiceFinance, "EventZone_InvoiceFinance", "eventzone_invoicefinance"},
    {10, UtilsLib::EventZone_Lockstep, "EventZone_Lockstep", "eventzone_lockstep"},
    {11, UtilsLib::EventZone_InvoiceFinanceTransactionWriteBack, "EventZone_InvoiceFinanceTransactionWriteBack",
     "eventzone_invoicefinancetransactionwriteback"},
    {12, UtilsLib::EventZone_AccessControl, "EventZone_AccessControl", "eventzone_accesscontrol"},
    {13, UtilsLib::EventZone_NetworkSync, "EventZone_NetworkSync", "eventzone_networksync"},
    {14, UtilsLib::EventZone_PaymentReminders, "EventZone_PaymentReminders", "eventzone_paymentreminders"},
};
const Row kTypes[] = {
    {1, UtilsLib::EventType_AccessError, "EventType_AccessError", "eventtype_accesserror"},
    {2, UtilsLib::EventType_ConnectionError, "EventType_ConnectionError", "eventtype_connectionerror"},
    {3, UtilsLib::EventType_AccountsLogonError, "EventType_AccountsLogonError", "eventtype_accountslogonerror"},
    {4, UtilsLib::EventType_MustStopSyncError, "EventType_MustStopSyncError", "eventtype_muststopsyncerror"},
    {5, UtilsLib::EventType_GeneralError, "EventType_GeneralError", "eventtype_generalerror"},
    {10, UtilsLib::EventType_BankCloudTokenError, "EventType_BankCloudTokenError", "eventtype_bankcloudtokenerror"},
    {11, UtilsLib::EventType_BankCloudUnauthorised, "EventType_BankCloudUnauthorised",
     "eventtype_bankcloudunauthorised"},
    {12, UtilsLib::EventType_DataServiceConnectionError, "EventType_DataServiceConnectionError",
     "eventtype_dataserviceconnectionerror"},
    {13, UtilsLib::EventType_DriveLocalDataHasBeenBackedUpBeforeBeingOverwritten,
     "EventType_DriveLocalDataHasBeenBackedUpBeforeBeingOverwritten",
     "eventtype_drivelocaldatahasbeenbackedupbeforebeingoverwritten"},
    {14, UtilsLib::EventType_DriveDisconnectedDueToInactivity, "EventType_DriveDisconnectedDueToInactivity",
     "eventtype_drivedisconnectedduetoinactivity"},
    {15, UtilsLib::EventType_InvoiceFinanceDataSyncError, "EventType_InvoiceFinanceDataSyncError",
     "eventtype_invoicefinancedatasyncerror"},
    {16, UtilsLib::EventType_Lockstep, "EventType_Lockstep", "eventtype_lockstep"},
    {17, UtilsLib::EventType_InvoiceFinanceTransactionWriteBackError,
     "EventType_InvoiceFinanceTransactionWriteBackError", "eventtype_invoicefinancetransactionwritebackerror"},
    {18, UtilsLib::EventType_AccessControl, "EventType_AccessControl", "eventtype_accesscontrol"},
    {19, UtilsLib::EventType_NetworkSyncError, "EventType_NetworkSyncError", "eventtype_networksyncerror"},
    {20, UtilsLib::EventType_PaymentRemindersSyncError, "EventType_PaymentRemindersSyncError",
     "eventtype_paymentreminderssyncerror"},
};
const Row kStates[] = {
    {1, UtilsLib::EventState_Set, "EventState_Set", "eventstate_set"},
    {2, UtilsLib::EventState_Reset, "EventState_Reset", "eventstate_reset"},
};

/// Texts that differ from `name` by little and are none.
std::vector<std::string> NearMisses(const std::string& name)
{
    std::vector<std::string> texts = {" " + name, name + " ", name + "\0"s, "\0"s + name, name + name, "\t" + name};
    for (std::size_t i = 0; i < name.size(); ++i)
    {
        texts.push_back(name.substr(0, i));
        texts.push_back(name.substr(i + 1));
        for (const int bit : {0x01, 0x02, 0x20, 0x40, 0x80})
        {
            const bool letterCaseOnly = bit == 0x20 && std::isalpha(static_cast<unsigned char>(name[i])) != 0;
            if (!letterCaseOnly)
            {
                texts.push_back(name);
                texts.back()[i] = static_cast<char>(texts.back()[i] ^ bit);
            }
        }
    }
    return texts;
}

/// One enumeration with its table and its functions as functions of numbers.
template <typename Enumeration, std::size_t count>
void CheckTable(const Row (&rows)[count], Enumeration (*parse)(std::string))
{
    static_assert(std::is_same_v<std::underlying_type_t<Enumeration>, std::int32_t>);
    static_assert(std::is_convertible_v<Enumeration, std::int32_t>, "unscoped");
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.enumerator, row.value);
        EXPECT_EQ(Cast::ToString(static_cast<Enumeration>(row.value)), row.name);
        EXPECT_EQ(parse(row.name), row.value);
        EXPECT_EQ(parse(row.lowerCase), row.value);
        EXPECT_EQ(parse(InCapitals(row.name)), row.value);
        for (const std::string& text : NearMisses(row.name))
        {
            // "EventZone_InvoiceFinance" begins another name.
            const auto other = std::find_if(std::begin(rows), std::end(rows),
                                            [&text](const Row& candidate) { return candidate.name == text; });
            EXPECT_EQ(parse(text), other == std::end(rows) ? 0 : other->value) << testing::PrintToString(text);
        }
    }
}

template <typename Enumeration, std::size_t count>
void CheckUnknown(const Row (&rows)[count])
{
    std::vector<int> values = {INT_MIN, INT_MIN + 1, INT_MAX - 1, INT_MAX, 0x10001, 0x100, 256 + 8};
    for (int value = -40; value <= 80; ++value)
    {
        values.push_back(value);
    }
    for (const int value : values)
    {
        if (std::none_of(std::begin(rows), std::end(rows), [value](const Row& row) { return row.value == value; }))
        {
            EXPECT_EQ(Cast::ToString(static_cast<Enumeration>(value)), "Unknown") << value;
        }
    }
}

} // namespace

TEST(CastTest, EveryScopeHasItsNumberAndItsTexts)
{
    CheckTable(kScopes, &Cast::EventScopeFromString);
}

TEST(CastTest, EveryZoneHasItsNumberAndItsTexts)
{
    CheckTable(kZones, &Cast::EventZoneFromString);
}

TEST(CastTest, EveryTypeHasItsNumberAndItsTexts)
{
    CheckTable(kTypes, &Cast::EventTypeFromString);
}

TEST(CastTest, EveryStateHasItsNumberAndItsTexts)
{
    CheckTable(kStates, &Cast::EventStateFromString);
}

TEST(CastTest, AllOtherNumbersAreUnknown)
{
    CheckUnknown<UtilsLib::eEventScope>(kScopes);
    CheckUnknown<UtilsLib::eEventZone>(kZones);
    CheckUnknown<UtilsLib::eEventType>(kTypes);
    CheckUnknown<UtilsLib::eEventState>(kStates);
}

TEST(CastTest, NoneIsZeroInEveryEnumeration)
{
    EXPECT_EQ(UtilsLib::EventScope_None, 0);
    EXPECT_EQ(UtilsLib::EventZone_None, 0);
    EXPECT_EQ(UtilsLib::EventType_None, 0);
    EXPECT_EQ(UtilsLib::EventState_None, 0);
}

TEST(CastTest, TextsThatAreNoNameAreZero)
{
    for (const std::string& text : {""s, "Unknown"s, "unknown"s, "EventZone_None"s, "EventType_None"s, "8"s, "\0"s,
                                    "EventZone_"s, std::string(1'000'000, 'e')})
    {
        EXPECT_EQ(Cast::EventScopeFromString(text), 0) << text.substr(0, 20);
        EXPECT_EQ(Cast::EventZoneFromString(text), 0) << text.substr(0, 20);
        EXPECT_EQ(Cast::EventTypeFromString(text), 0) << text.substr(0, 20);
        EXPECT_EQ(Cast::EventStateFromString(text), 0) << text.substr(0, 20);
    }
}

TEST(CastTest, ANameOfAnotherEnumerationIsZero)
{
    EXPECT_EQ(Cast::EventTypeFromString("EventZone_Lockstep"), 0);
    EXPECT_EQ(Cast::EventZoneFromString("EventType_Lockstep"), 0);
    EXPECT_EQ(Cast::EventScopeFromString("EventState_Set"), 0);
    EXPECT_EQ(Cast::EventStateFromString("EventScope_DataService"), 0);
}

TEST(CastTest, EventsAreAggregatesOfFourNumbersAndTwoTexts)
{
    const UtilsLib::Event event{UtilsLib::EventScope_DataService,
                                UtilsLib::EventZone_Drive,
                                UtilsLib::EventType_Lockstep,
                                UtilsLib::EventState_Set,
                                "title",
                                "message"};
    const UtilsLib::EventDontShow hidden{1, 8, 16};
    const auto [scope, zone, type, state, title, message] = event;

    EXPECT_EQ(scope, hidden.scope);
    EXPECT_EQ(zone, hidden.zone);
    EXPECT_EQ(type, hidden.type);
    EXPECT_EQ(state, 1);
    EXPECT_EQ(title, "title");
    EXPECT_EQ(message, "message");
    static_assert(std::is_same_v<decltype(UtilsLib::Event::state), std::int32_t>);
    static_assert(sizeof(UtilsLib::EventDontShow) == 12);
}

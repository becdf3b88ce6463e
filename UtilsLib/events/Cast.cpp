#include <UtilsLib/events/Cast.h>

#include <UtilsLib/platform/LowerCase.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace UtilsLib
{

namespace
{

struct Name
{
    std::int32_t value;
    std::string_view text;
};

constexpr Name kScopes[] = {{EventScope_DataService, "EventScope_DataService"}};

constexpr Name kZones[] = {
    {EventZone_Customer_Ledger, "EventZone_Customer_Ledger"},
    {EventZone_Invoices_Ledger, "EventZone_Invoices_Ledger"},
    {EventZone_Purchase_Ledger, "EventZone_Purchase_Ledger"},
    {EventZone_BankCloud, "EventZone_BankCloud"},
    {EventZone_ConnectedBridge_CompanyDetails, "EventZone_ConnectedBridge_CompanyDetails"},
    {EventZone_InvoicePayments, "EventZone_InvoicePayments"},
    {EventZone_Drive, "EventZone_Drive"},
    {EventZone_InvoiceFinance, "EventZone_InvoiceFinance"},
    {EventZone_Lockstep, "EventZone_Lockstep"},
    {EventZone_InvoiceFinanceTransactionWriteBack, "EventZone_InvoiceFinanceTransactionWriteBack"},
    {EventZone_AccessControl, "EventZone_AccessControl"},
    {EventZone_NetworkSync, "EventZone_NetworkSync"},
    {EventZone_PaymentReminders, "EventZone_PaymentReminders"},
};

constexpr Name kTypes[] = {
    {EventType_AccessError, "EventType_AccessError"},
    {EventType_ConnectionError, "EventType_ConnectionError"},
    {EventType_AccountsLogonError, "EventType_AccountsLogonError"},
    {EventType_MustStopSyncError, "EventType_MustStopSyncError"},
    {EventType_GeneralError, "EventType_GeneralError"},
    {EventType_BankCloudTokenError, "EventType_BankCloudTokenError"},
    {EventType_BankCloudUnauthorised, "EventType_BankCloudUnauthorised"},
    {EventType_DataServiceConnectionError, "EventType_DataServiceConnectionError"},
    {EventType_DriveLocalDataHasBeenBackedUpBeforeBeingOverwritten,
     "EventType_DriveLocalDataHasBeenBackedUpBeforeBeingOverwritten"},
    {EventType_DriveDisconnectedDueToInactivity, "EventType_DriveDisconnectedDueToInactivity"},
    {EventType_InvoiceFinanceDataSyncError, "EventType_InvoiceFinanceDataSyncError"},
    {EventType_Lockstep, "EventType_Lockstep"},
    {EventType_InvoiceFinanceTransactionWriteBackError, "EventType_InvoiceFinanceTransactionWriteBackError"},
    {EventType_AccessControl, "EventType_AccessControl"},
    {EventType_NetworkSyncError, "EventType_NetworkSyncError"},
    {EventType_PaymentRemindersSyncError, "EventType_PaymentRemindersSyncError"},
};

constexpr Name kStates[] = {{EventState_Set, "EventState_Set"}, {EventState_Reset, "EventState_Reset"}};

template <std::size_t count>
std::string TextOf(std::int32_t value, const Name (&names)[count])
{
    const auto found =
        std::find_if(std::begin(names), std::end(names), [value](const Name& name) { return name.value == value; });
    return std::string(found == std::end(names) ? std::string_view("Unknown") : found->text);
}

/// The texts of one length differ early from their end: it is looked at first.
bool IsSameInLowerCase(const std::string& text, std::string_view name)
{
    return text.size() == name.size() && std::equal(text.rbegin(), text.rend(), name.rbegin(), [](char a, char b) {
               return a == b || Platform::LowerCase(a) == Platform::LowerCase(b);
           });
}

template <typename Enumeration, std::size_t count>
Enumeration ValueOf(const std::string& text, const Name (&names)[count])
{
    const auto found = std::find_if(std::begin(names), std::end(names),
                                    [&text](const Name& name) { return IsSameInLowerCase(text, name.text); });
    return static_cast<Enumeration>(found == std::end(names) ? 0 : found->value);
}

} // namespace

std::string Cast::ToString(eEventScope scope)
{
    return TextOf(scope, kScopes);
}

std::string Cast::ToString(eEventZone zone)
{
    return TextOf(zone, kZones);
}

std::string Cast::ToString(eEventType type)
{
    return TextOf(type, kTypes);
}

std::string Cast::ToString(eEventState state)
{
    return TextOf(state, kStates);
}

eEventScope Cast::EventScopeFromString(std::string text)
{
    return ValueOf<eEventScope>(text, kScopes);
}

eEventZone Cast::EventZoneFromString(std::string text)
{
    return ValueOf<eEventZone>(text, kZones);
}

eEventType Cast::EventTypeFromString(std::string text)
{
    return ValueOf<eEventType>(text, kTypes);
}

eEventState Cast::EventStateFromString(std::string text)
{
    return ValueOf<eEventState>(text, kStates);
}

} // namespace UtilsLib

#pragma once

#include <cstdint>

namespace UtilsLib
{

/// What happened. The numbers are stored and exchanged: they never change, and 6 to 9 stay reserved.
enum eEventType : std::int32_t
{
    EventType_None = 0, ///< none or unknown; has no text form
    EventType_AccessError = 1,
    EventType_ConnectionError = 2,
    EventType_AccountsLogonError = 3,
    EventType_MustStopSyncError = 4,
    EventType_GeneralError = 5,
    EventType_BankCloudTokenError = 10,
    EventType_BankCloudUnauthorised = 11,
    EventType_DataServiceConnectionError = 12,
    EventType_DriveLocalDataHasBeenBackedUpBeforeBeingOverwritten = 13,
    EventType_DriveDisconnectedDueToInactivity = 14,
    EventType_InvoiceFinanceDataSyncError = 15,
    EventType_Lockstep = 16,
    EventType_InvoiceFinanceTransactionWriteBackError = 17,
    EventType_AccessControl = 18,
    EventType_NetworkSyncError = 19,
    EventType_PaymentRemindersSyncError = 20
};

} // namespace UtilsLib

#pragma once

#include <cstdint>

namespace UtilsLib
{

/// The functional area that raised an event. The numbers are stored and exchanged: they never change, and 1 stays free.
enum eEventZone : std::int32_t
{
    EventZone_None = 0, ///< none or unknown; has no text form
    EventZone_Customer_Ledger = 2,
    EventZone_Invoices_Ledger = 3,
    EventZone_Purchase_Ledger = 4,
    EventZone_BankCloud = 5,
    EventZone_ConnectedBridge_CompanyDetails = 6,
    EventZone_InvoicePayments = 7,
    EventZone_Drive = 8,
    EventZone_InvoiceFinance = 9,
    EventZone_Lockstep = 10,
    EventZone_InvoiceFinanceTransactionWriteBack = 11,
    EventZone_AccessControl = 12,
    EventZone_NetworkSync = 13,
    EventZone_PaymentReminders = 14
};

} // namespace UtilsLib

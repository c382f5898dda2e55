#pragma once

namespace brassline {

// Notification names, user info keys and user default keys of change observation and the
// state controller, spelled as posted and stored.

inline constexpr const char* kRefreshClientInfoNotification = "RefreshClientInfo";
inline constexpr const char* kInvalidateAddressesNotification = "invalidateAddresses";
inline constexpr const char* kRefreshSourceListsNotification = "RefreshSourceLists";
inline constexpr const char* kDefaultChangedInContainerNotification = "DefaultChangedInContainer";
inline constexpr const char* kUpdateStateControllerNotification = "UpdateStateController";
inline constexpr const char* kDocumentsChangedNotification = "BLDocumentsChanged";
inline constexpr const char* kDocumentsChangedInInvoiceNotification = "DocumentsChangedInInvoice";
inline constexpr const char* kItemGroupsChangedNotification = "BLItemGroupsChanged";
inline constexpr const char* kRefreshPaymentsNotification = "RefreshPayments";
inline constexpr const char* kUpdateOverviewNotification = "updateOverview";
inline constexpr const char* kCustomValueChangedNotification = "BLCustomValueChanged";
inline constexpr const char* kCustomFieldChangedNotification = "BLCustomFieldChanged";
inline constexpr const char* kLayoutStoreChangedNotification = "BLLayoutStoreChanged";
inline constexpr const char* kRefreshTaxTableNotification = "RefreshTaxTable";

// Further triggers of a state refresh.
inline constexpr const char* kDocumentSentNotification = "BLDocumentSent";
inline constexpr const char* kPayNotification = "PayNotification";
inline constexpr const char* kUpdateNotificationsNotification = "UpdateNotifications";

// User info of the observer's posts: the document's main context.
inline constexpr const char* kContextKey = "context";

inline constexpr const char* kFireNotificationsBreadcrumb = "Fire Notifications";
inline constexpr const char* kParentDocumentLostMessage = "!!!!!";

// The state controller's records for the dock tile, per document identifier, and the
// setting that hides them.
inline constexpr const char* kDockTileInfoFormat = "DockTileInfo.%@";
inline constexpr const char* kDockTileHideKey = "dockTile.hide";
inline constexpr const char* kDockTileOpenKey = "open";
inline constexpr const char* kDockTileRecurringKey = "recurring";
inline constexpr const char* kDockTileOverDueIntervalKey = "overDueInterval";
inline constexpr const char* kDockTileFilePathKey = "filePath";
inline constexpr const char* kOverdueIntervalPreference = "invoice.overdueInterval";

inline constexpr const char* kOverviewQueueName = "OVERVIEW";

}  // namespace brassline

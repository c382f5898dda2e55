#pragma once

#include <array>
#include <string_view>

namespace brassline {

// Notification names, preference and user default keys, fixed uids, texts and messages of
// the entity classes, spelled exactly as they are posted, stored and logged.

// Notifications.
inline constexpr const char* kAddedDefaultItemNotification = "AddedDefaultItem";
inline constexpr const char* kChangedDefaultNotificationFormat = "ChangedDefault%@";

// Fixed uids.
inline constexpr const char* kDefaultProfileUID = "default.profile";
inline constexpr const char* kDefaultCurrencyUID = "bl.default.currency";
inline constexpr const char* kDefaultCurrencyName = "Default";
inline constexpr const char* kMigratedCurrencyUIDFormat = "currency.%@";
inline constexpr const char* kFollowUpMailSubjectUIDFormat = "BLPref.%@.mailSubject";
inline constexpr const char* kFollowUpMailBodyUIDFormat = "BLPref.%@.mailBody";
inline constexpr const char* kCustomFieldSetUIDFormat = "com.orvane.Brassline.customFieldSet.%@";

// Keys of the application's defaults file that new follow-up types copy.
inline constexpr const char* kInvoiceMailSubjectDefaultKey = "BLPref.invoice.mailSubject";
inline constexpr const char* kInvoiceMailBodyDefaultKey = "BLPref.invoice.mailBody";

// Per-document preferences: stored as BLPreference objects with uid "BLPref.<group>.<key>".
inline constexpr const char* kPreferenceUIDPrefix = "BLPref.";
inline constexpr const char* kPrefDefaultUseGrossPrices = "default.useGrossPrices";
inline constexpr const char* kPrefInvoicePayInterval = "invoice.payInterval";
inline constexpr const char* kPrefEstimateValidity = "estimate.validity";

// User defaults.
inline constexpr const char* kInsertDatesOnItemCreationDefault = "insertDatesOnItemCreation";
inline constexpr const char* kKeepLeadOnConversionDefault = "KeepLeadOnConversion";
inline constexpr const char* kDashboardUseGrossPricesDefault = "dashboardUseGrossPrices";

// Keys of caches and key-value coding.
inline constexpr const char* kDefaultItemCacheKey = "__defaultItemCache";
inline constexpr const char* kDocumentCountCacheKey = "documentCount";
inline constexpr const char* kCustomFieldAccessorKey = "customFieldAccessor";
inline constexpr const char* kCustomFieldPrefix = "custom.";

// Preference payload types and the secret-store form.
inline constexpr const char* kPreferenceTypeNull = "NSNull";
inline constexpr const char* kPreferenceTypeString = "NSString";
inline constexpr const char* kPreferenceTypeNumber = "NSNumber";
inline constexpr const char* kPreferenceTypeDate = "NSDate";
inline constexpr const char* kPreferenceTypeData = "NSData";
inline constexpr const char* kPreferenceTypeDictionary = "NSDictionary";
inline constexpr const char* kPreferenceTypeKeychain = "NSKeychain";
inline constexpr const char* kKeychainUIDSuffix = "@keychain";
inline constexpr const char* kDataOfSizeFormat = "Data of Size %ld";

// Words passed through the translation table.
inline constexpr const char* kUntitledText = "untitled";
inline constexpr const char* kDefaultText = "default";
inline constexpr const char* kDuplicateText = "doc_duplicate";
inline constexpr const char* kNewText = "new";
inline constexpr const char* kNameWithSuffixFormat = "%@ (%@)";

// New import rules.
inline constexpr const char* kImportRuleDefaultField = "category";
inline constexpr const char* kImportRuleDefaultOperator = "filter_contains";

// Log messages.
inline constexpr const char* kErrorFetchingCountMessage = "Error fetching count: %@";
inline constexpr const char* kErrorFindingObjectMessage = "Error finding object: %@: %@";

// The derived keys whose observers hear of a cache reset, in this order.
inline constexpr std::array<std::string_view, 21> kResetCachesKeys = {"cost",
                                                                      "costWithTaxes",
                                                                      "documentsString",
                                                                      "margin",
                                                                      "activityDate",
                                                                      "tableDate",
                                                                      "dateRangeForOverview",
                                                                      "displayName",
                                                                      "totalWeight",
                                                                      "windowName",
                                                                      "canPay",
                                                                      "statusImage",
                                                                      "image",
                                                                      "icon",
                                                                      "balance",
                                                                      "tableInfo",
                                                                      "isDue",
                                                                      "isOverDue",
                                                                      "isDraft",
                                                                      "canEditCurrency",
                                                                      "isCashDiscount"};

// Refusals of edits by hand (UserEdits.h); the first argument names the object.
inline constexpr const char* kLockedDocumentMessage =
    "%@ is issued and read-only. Unlock it to change it or its items.";
inline constexpr const char* kLockedDeletionMessage =
    "%@ is issued and can't be deleted, nor can its items. Unlock it first.";
inline constexpr const char* kDefaultDeletionMessage = "%@ is the default and can't be deleted.";
inline constexpr const char* kUsedDeletionMessage = "%@ can't be deleted: it is used by %@ %@.";

}  // namespace brassline

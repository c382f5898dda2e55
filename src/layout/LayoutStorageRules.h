#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"
#include "layout/BLView.h"
#include "layout/LayoutGeometry.h"

namespace brassline {

class BLLayout;
class BLLayoutStorage;
class ManagedObjectContext;

// The behaviour of the layout entities that needs the element tree: storage bytes, fonts,
// localisation, defaults for new documents, repairs and paper names. Main thread.

// Stores the archive: clears the undo actions of the store, sets the bytes, posts
// "BLSyncLayout" with no object.
void setLayoutStorageData(BLLayoutStorage& storage, Bytes data);
// The comma-joined font names kept in the storage's notes (a name with a comma splits).
std::vector<std::string> layoutFontNames(const BLLayoutStorage& storage);
void setLayoutFontNames(BLLayoutStorage& storage, const std::vector<std::string>& names);

// Inserts a storage with the default layout for the company's paper, localised, and
// attaches it.
void createNewStorage(BLLayout& layout);
// Writes the default layout into a storage and sets the layout's paper and classes.
void fillStorageWithDefaultLayout(BLLayout& layout, BLLayoutStorage& storage);
// Rewrites the storage from a fresh load (migrates older archives); for every layout.
void updateStorage(BLLayout& layout);
void updateLayouts(ManagedObjectContext& context);
// Imports the older "design" bytes and stores them with their paper format.
bool migrateData(BLLayout& layout, const Bytes& legacy);

// Translates the template's short texts from English into the current language, then from
// German (so a German template becomes English too); longer sentences stay.
void localize(BLLayoutStorage& storage);
// One step of that: `table` is a translation table (key to text) of the template's language.
void localizeFromTable(BLLayoutStorage& storage, const Value::Dictionary& table);
void localizeFromPath(BLLayoutStorage& storage, const std::string& path);
// The texts of the layout's elements (collects) and their replacement (re-archives).
void appendTranslationDictionary(const BLLayoutStorage& storage, TranslationDictionary& dictionary);
void setTranslationDictionary(BLLayoutStorage& storage, const TranslationDictionary& dictionary);
// The first page's layoutDictionaryRepresentation, pretty JSON, to `path`.
bool exportLayoutJSON(const BLLayout& layout, const std::string& path);

// Defaults for new documents.
void makeDefaultForField(BLLayout& layout, const std::string& field);
void makeDefaultForDocumentsOfEntity(BLLayout& layout, const std::string& entity);
void makeDefaultForInvoices(BLLayout& layout);
void makeDefaultForEstimates(BLLayout& layout);
void makeDefaultForStatements(BLLayout& layout);
void makeDefaultForAdditionalDocuments(BLLayout& layout);
// Invoices and estimates without a layout take the default contact's.
void fixLayouts(ManagedObjectContext& context);
// "name" and "uid".
Value::Dictionary layoutSubstitutionDictionary(const BLLayout& layout);

// The paper list: ISO A and B series, US Letter and Legal, envelopes, then the user's
// custom papers (a property-list array of "localised_paper_name", "width", "height" in the
// file `customPapersPath()`). Entries have "paper_name", "paper_size" (size text),
// "paper_identifier", "printable_margins" (rectangle text).
std::vector<Value::Dictionary> paperInfo();
std::string customPapersPath();
void setCustomPapersPath(std::string path);
// The first paper within 4 points of the rounded size on each side, else "custom".
std::string paperName(Size size);
// A paper size by its name or identifier ("A4", "letter"), or by a size text "{w, h}".
std::optional<Size> paperSizeNamed(std::string_view nameOrSize);

}  // namespace brassline

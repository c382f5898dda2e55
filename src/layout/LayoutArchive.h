#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/KeyedArchive.h"
#include "layout/BLLayoutPageView.h"
#include "layout/BLLayoutTableSectionView.h"

// The layout archive: a keyed archive whose root dictionary holds "pages" and
// "tableSections", arrays of records with the element under "view". Reading, writing and
// the load steps that every stored layout goes through; no store needed.

namespace brassline {

// A page or section record of the layout archive: "view", "identifier", "name" and, for
// pages the user added, "uid". Other members of an archived record are kept as they came.
struct LayoutRecord {
    ViewPtr view;
    std::string identifier;
    std::string name;
    std::string uid;
    std::vector<std::pair<std::string, KeyedNode>> otherMembers;

    // The identifier by which lookups match: the record's, else its view's.
    std::string lookupIdentifier() const;
};

// Reads an archive's records without the load steps (what sameToOldData and the
// localisation walk use). Nothing, with the reason, for bytes that don't decode.
struct LayoutArchive {
    std::vector<LayoutRecord> pages;
    std::vector<LayoutRecord> tableSections;
};
std::optional<LayoutArchive> readLayoutArchive(const Bytes& data, std::string* error = nullptr);
Bytes writeLayoutArchive(const LayoutArchive& archive);
// The platform's LIKE without options: "*" and "?" as wildcards, case-sensitive.
bool matchesLike(std::string_view text, std::string_view pattern);

// The records of an archived list of record dictionaries; other entries are skipped.
std::vector<LayoutRecord> layoutRecordsFromNode(const KeyedNode* list);

// The section identifiers in table order (15).
const std::vector<std::string>& layoutTableOrder();

// A stored layout after the load steps: legacy text migrated, sections completed along
// the table order ("options" and "partialinvoice" derived from their neighbours, the rest
// empty), ordered, renamed by position when all are there, system text colours fixed to
// black. Bytes that don't decode give the empty layout, with the reason in `error`.
struct RestoredLayout {
    LayoutArchive archive;
    std::string error;
};
RestoredLayout restoreLayoutArchive(const Bytes& data);

}  // namespace brassline

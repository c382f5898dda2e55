#pragma once

#include <QIcon>
#include <QString>

#include "app/desktop/ObjectTableModel.h"

namespace brassline::desktop {

// The lists of the source list, in the order they are shown.
enum class Source { Clients, Estimates, Invoices, CreditNotes, Catalog, Layouts };
inline constexpr Source kAllSources[] = {Source::Clients,     Source::Estimates, Source::Invoices,
                                         Source::CreditNotes, Source::Catalog,   Source::Layouts};

QString sourceTitle(Source source);
ListDefinition listDefinition(Source source);
// The entity a "New" in this list makes; empty where the list makes nothing yet.
std::string sourceNewEntity(Source source);

// Small icons drawn here, in the window's palette: one per list and the toolbar's.
enum class Glyph {
    Client,
    Estimate,
    Invoice,
    CreditNote,
    Catalog,
    Layout,
    Issue,
    Unlock,
    Duplicate,
    Convert,
    Settle,
    Delete,
    Add,
    Preview
};
QIcon glyphIcon(Glyph glyph);
Glyph sourceGlyph(Source source);

}  // namespace brassline::desktop

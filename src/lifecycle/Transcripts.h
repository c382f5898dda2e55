#pragma once

#include <string>
#include <vector>

namespace brassline {

class BLTranscript;
class ManagedObjectContext;

// The audit trail's rows, newest first; only those whose displayType contains `filter`
// (case and diacritics ignored) when a filter is given.
std::vector<BLTranscript*> sortedTranscripts(ManagedObjectContext& context, const std::string& filter = {});

struct [[nodiscard]] TranscriptExport {
    bool ok = false;
    std::string folder;   // The folder written.
    std::string message;  // Why it failed.
    size_t entries = 0;
};

// Writes the folder `<parent>/<name>` anew (an old one of that name is removed): the
// property list "<name>.xml" ({entries, date, creator, version, info}, each entry with
// operation, documentType, documentNumber, date and the record as contents) and
// "<name>.rtf", a copy of the resource "GoBD.rtf". `name` empty: the localised
// "Transcript". Nothing is left behind on failure but what was written before it.
TranscriptExport exportTranscripts(ManagedObjectContext& context, const std::string& parent,
                                   const std::string& name = {});

}  // namespace brassline

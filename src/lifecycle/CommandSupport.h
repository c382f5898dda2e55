#pragma once

#include <iosfwd>
#include <memory>
#include <string>

namespace brassline {

class BLDoc;
class ManagedObject;

// The common start of the document commands: the company file opened with every hook of
// the life cycle in place, or null after a message on `err`.
std::unique_ptr<BLDoc> openCommandDocument(const std::string& path, std::ostream& err);
// The object of any entity with `uid`, or null after "no object has the uid" on `err`.
ManagedObject* commandObjectWithUid(BLDoc& document, const std::string& uid, std::ostream& err);
// Saves the file: true, or false after "the company file can't be saved" on `err`.
bool saveCommandDocument(BLDoc& document, std::ostream& err);

}  // namespace brassline

#pragma once

#include <string>
#include <string_view>

#include "lifecycle/Substitution.h"

namespace brassline {

class BLSendable;

// `text` with every tag "<key/>" replaced by the dictionary's value for key: a missing
// key gives "", the object entry is never printed (its tag stays), and anything that is
// not a well-formed tag ("<key>", "<a b/>", "<key/" at the end) stays as written. A key
// is one or more characters other than blanks, "<", ">" and "/". Never fails.
std::string fillTags(std::string_view text, const SubstitutionDictionary& dictionary);

// The word a document is called by ("Invoice", "Credit note", "Estimate", a follow-up
// type's name), from the "<kind>.label" preference or the translated default, in the
// recipient's language.
std::string documentLabel(BLSendable& document);
// The preference group of the document's mail texts: "invoice", "creditnote" below zero,
// "estimate", or a follow-up's type uid.
std::string mailPrefsKey(BLSendable& document);

// The mail subject and body of a document: the preference "<mailPrefsKey>.mailSubject"
// (and ".mailBody"), else the application's default for that key, else the invoice's,
// filled from the document's substitution dictionary.
std::string mailSubject(BLSendable& document);
std::string mailBody(BLSendable& document);

}  // namespace brassline

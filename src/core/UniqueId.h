#pragma once

#include <string>

namespace brassline {

// A fresh uid: the 16 bytes of a random (version 4) UUID in base64 without padding, with
// "/" replaced by "_" and "+" by "-", so 22 characters of [A-Za-z0-9_-]. Thread-safe.
std::string uniqueBase64String();

}  // namespace brassline

#pragma once

#include "library/LibraryIndex.h"

#include <string>
#include <string_view>

namespace varnel::IndexCoding {

// index.json is the one library file that grows with the library, and it is rewritten by every
// change; these read and write it without building a JSON document in between. The text is
// the shared encoder's, byte for byte, and decoding follows the same rules as
// LibraryIndex::fromJson. Both throw CodingError.
std::string encode(const LibraryIndex& index);
LibraryIndex decode(std::string_view bytes);

} // namespace varnel::IndexCoding

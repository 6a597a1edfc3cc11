// Who is measured: each function reads a whole document once and gives what it made of it. All
// throw std::runtime_error when the document was not read to its end.
#pragma once

#include <string>

#include "content.h"
#include "pass.h"

namespace bench {

// This library, into a fresh scene.
Result readFile(const std::string& path, unsigned long nodes);
Result readText(const Content& content);

// Bare loops over the text of the buffers, into arrays of the buffers' types.
Result stdFromChars(const Content& content);
Result fastFloat(const Content& content);

// Documents in memory, from the same content as JSON.
Result simdJson(const Content& content);
Result rapidJson(const Content& content);       // reals off by a bit now and then
Result rapidJsonExact(const Content& content);  // correctly rounded reals
Result nlohmannJson(const Content& content);

}  // namespace bench

// How a program reads a document with this library; older ones are measured by the same code.
#pragma once

#include <memory>
#include <string>

#include <ko/kvtparser.h>

namespace bench {

// A new scene with what the document says. Both throw std::runtime_error when it was not read to
// its end.
std::shared_ptr<ko::mirel_sdk::impl::Scene> sceneOfFile(const std::string& path);
std::shared_ptr<ko::mirel_sdk::impl::Scene> sceneOfText(const ko::String& text);

}  // namespace bench

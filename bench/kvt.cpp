#include "kvt.h"

#include <stdexcept>

namespace bench {

using ko::mirel_sdk::impl::Scene;

std::shared_ptr<Scene> sceneOfFile(const std::string& path) {
    auto scene = std::make_shared<Scene>();
    const ko::File file = ko::File::open(path.c_str());
    const bool wasRead = parseKvt(scene.get(), file, false) && file.error() == ko::File::None;
    if (!wasRead) throw std::runtime_error("cannot read " + path);
    return scene;
}

std::shared_ptr<Scene> sceneOfText(const ko::String& text) {
    auto scene = std::make_shared<Scene>();
    if (!parseString(scene.get(), text)) throw std::runtime_error("cannot read the text");
    return scene;
}

}  // namespace bench

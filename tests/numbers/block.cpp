#include "block.h"

namespace kvt::test {

namespace {

using ko::bulk::Path;

std::vector<NamedPath> pathsHere() {
    std::vector<NamedPath> paths;
    const auto offer = [&paths](const char* name, Path path) {
        if (!ko::bulk::hasPath(path)) return;
        ko::bulk::usePath(path);
        paths.push_back({name, ko::bulk::operations().convertNumbers});
    };
    offer("plain", Path::Plain);
    offer("AVX2", Path::Avx2);
    offer("AVX-512", Path::Avx512);
    return paths;
}

}  // namespace

const std::vector<NamedPath>& paths() {
    static const std::vector<NamedPath> all = pathsHere();
    return all;
}

}  // namespace kvt::test

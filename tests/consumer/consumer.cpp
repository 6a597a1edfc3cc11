#include <cstdio>

#include <ko/kvtparser.h>

namespace impl = ko::mirel_sdk::impl;

int main() {
    impl::Scene scene;
    const bool wasRead = impl::parseString(&scene, "sphere ball:\n.radius = 2.5;\n");
    const impl::Node* ball = scene.findNode("ball");
    const impl::Input* radius = ball ? ball->input("radius") : nullptr;
    if (wasRead && radius && radius->asReal() == 2.5) return 0;
    std::puts("the document was not read");
    return 1;
}

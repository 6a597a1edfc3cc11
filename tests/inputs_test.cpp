// The file that keeps the inputs of a target of the fuzzer.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "../fuzz/inputs.h"

namespace {

using kvt::fuzz::inputNamed;
using kvt::fuzz::inputsAt;
using kvt::fuzz::pack;
using kvt::fuzz::unpack;
using std::string_literals::operator""s;

TEST(KeptInputs, AreTheSameBytesAfterPacking) {
    const std::vector<std::string> inputs = {"", "\n", "3\nabc", "a\0b\xFF"s};
    EXPECT_EQ(unpack(pack(inputs)), (std::vector<std::string>{"", "\n", "a\0b\xFF"s, "3\nabc"}));
}

TEST(KeptInputs, ArePackedOnceEachShortOnesFirst) {
    EXPECT_EQ(pack({"bb", "c", "bb", "a", ""}), "0\n\n1\na\n1\nc\n2\nbb\n");
}

TEST(KeptInputs, OfABrokenFileAreRefused) {
    for (const char* const broken : {"x", "1", "1\n", "1\na", "1\nab", "2\na\n", "-1\n", "\n",
                                     "18446744073709551616\na\n", "1\na\nx"})
        EXPECT_THROW(unpack(broken), std::runtime_error) << broken;
}

TEST(KeptInputs, AreFoundByTheirNames) {
    const std::filesystem::path corpus = std::filesystem::path(KVT_SOURCE_DIR) / "fuzz" / "corpus";
    const auto inputs = inputsAt(corpus / "lexer.inputs");
    ASSERT_LT(3U, inputs.size());
    EXPECT_EQ(inputs[3].name, (corpus / "lexer.inputs#3").string());
    EXPECT_EQ(inputNamed(inputs[3].name).bytes, inputs[3].bytes);
    EXPECT_THROW(inputNamed((corpus / "lexer.inputs#1000000").string()), std::runtime_error);
}

}  // namespace

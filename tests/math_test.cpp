// Math values: their defaults and their reading from text.

#include <ko/foundation.h>
#include <ko/math.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace {

using ko::String;
using ko::math::AabbT;
using ko::math::MatT;
using ko::math::PosT;
using ko::math::QuatT;
using ko::math::RgbaT;
using ko::math::VecT;

using Numbers = std::vector<double>;

template <class T>
Numbers componentsOf(const T& value) {
    return Numbers(std::begin(value.c), std::end(value.c));
}

// A value whose components nothing in these tests would write.
template <class T>
T untouched() {
    T value{};
    std::fill(std::begin(value.c), std::end(value.c), -77.0);
    return value;
}

template <class T>
void expectRead(const char* text, const Numbers& expected) {
    SCOPED_TRACE(text);
    T value = untouched<T>();
    EXPECT_TRUE(String::parse(text, value));
    EXPECT_EQ(componentsOf(value), expected);
}

// Refused, with these components left behind.
template <class T>
void expectRefused(const char* text, const Numbers& left) {
    SCOPED_TRACE(text);
    T value = untouched<T>();
    EXPECT_FALSE(String::parse(text, value));
    EXPECT_EQ(componentsOf(value), left);
}

template <class T>
void expectRefusedUntouched(const char* text) {
    expectRefused<T>(text, componentsOf(untouched<T>()));
}

// --- defaults

TEST(MathDefaultsTest, VectorsAndPointsAreZero) {
    EXPECT_EQ(componentsOf(VecT<2, double>::zero), (Numbers{0, 0}));
    EXPECT_EQ(componentsOf(VecT<3, double>::zero), (Numbers{0, 0, 0}));
    EXPECT_EQ(componentsOf(VecT<4, double>::zero), (Numbers{0, 0, 0, 0}));
    EXPECT_EQ(componentsOf(PosT<2, double>::zero), (Numbers{0, 0}));
    EXPECT_EQ(componentsOf(PosT<3, double>::zero), (Numbers{0, 0, 0}));
}

TEST(MathDefaultsTest, RotationIsTheIdentityWithItsRealPartLast) {
    EXPECT_EQ(componentsOf(QuatT<double>::identity), (Numbers{0, 0, 0, 1}));
}

TEST(MathDefaultsTest, ColourIsOpaqueBlack) {
    EXPECT_EQ(componentsOf(RgbaT<double>::black), (Numbers{0, 0, 0, 1}));
}

TEST(MathDefaultsTest, MatricesAreIdentities) {
    EXPECT_EQ(componentsOf(MatT<3, double>::identity), (Numbers{1, 0, 0, 0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(componentsOf(MatT<4, double>::identity),
              (Numbers{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
}

TEST(MathDefaultsTest, BoxIsDegenerateAtTheOrigin) {
    EXPECT_EQ(componentsOf(AabbT<double>::identity.min), (Numbers{0, 0, 0}));
    EXPECT_EQ(componentsOf(AabbT<double>::identity.max), (Numbers{0, 0, 0}));
}

TEST(MathLayoutTest, ValuesArePlainArraysOfComponents) {
    EXPECT_EQ(sizeof(VecT<2, double>), 16U);
    EXPECT_EQ(sizeof(VecT<4, double>), 32U);
    EXPECT_EQ(sizeof(PosT<3, double>), 24U);
    EXPECT_EQ(sizeof(QuatT<double>), 32U);
    EXPECT_EQ(sizeof(RgbaT<double>), 32U);
    EXPECT_EQ(sizeof(MatT<3, double>), 72U);
    EXPECT_EQ(sizeof(MatT<4, double>), 128U);
    EXPECT_EQ(sizeof(AabbT<double>), 48U);
}

// --- values with a fixed number of components

TEST(MathParseTest, EveryTypeReadsItsComponentsInOrder) {
    expectRead<VecT<2, double>>("1 2", {1, 2});
    expectRead<VecT<3, double>>("1 2 3", {1, 2, 3});
    expectRead<VecT<4, double>>("1 2 3 4", {1, 2, 3, 4});
    expectRead<PosT<2, double>>("1 2", {1, 2});
    expectRead<PosT<3, double>>("1 2 3", {1, 2, 3});
    expectRead<QuatT<double>>("1 2 3 4", {1, 2, 3, 4});
    expectRead<MatT<3, double>>("1 2 3 4 5 6 7 8 9", {1, 2, 3, 4, 5, 6, 7, 8, 9});
    expectRead<MatT<4, double>>("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16",
                                {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    expectRead<RgbaT<double>>("1 2 3 4", {1, 2, 3, 4});
}

TEST(MathParseTest, ComponentsAreRealsOfAnySpelling) {
    const double infinity = std::numeric_limits<double>::infinity();
    expectRead<VecT<4, double>>("-.5 1e2 2.5f -inf", {-0.5, 100, 2.5, -infinity});
    VecT<2, double> value = VecT<2, double>::zero;
    EXPECT_TRUE(String::parse("nan 1", value));
    EXPECT_TRUE(std::isnan(value.c[0]));
}

TEST(MathParseTest, FloatComponentsAreReadAsFloats) {
    VecT<2, float> value = VecT<2, float>::zero;
    EXPECT_TRUE(String::parse("0.1 16777217", value));
    EXPECT_EQ(value.c[0], 0.1F);
    EXPECT_EQ(value.c[1], 16777216.0F);
    EXPECT_FALSE(String::parse("1 1e39", value));
}

TEST(MathParseTest, FurtherPiecesAreIgnored) {
    expectRead<VecT<2, double>>("1 2 3 4", {1, 2});
    expectRead<VecT<2, double>>("1 2 x", {1, 2});
    expectRead<PosT<3, double>>("1 2 3 4", {1, 2, 3});
    expectRead<QuatT<double>>("1 2 3 4 5", {1, 2, 3, 4});
    expectRead<MatT<3, double>>("1 2 3 4 5 6 7 8 9 10 11", {1, 2, 3, 4, 5, 6, 7, 8, 9});
    expectRead<RgbaT<double>>("1 2 3 4 5", {1, 2, 3, 4});
}

TEST(MathParseTest, RunsOfSpacesSeparateLikeOne) {
    expectRead<VecT<2, double>>("  1   2  ", {1, 2});
}

TEST(MathParseTest, OtherBlanksBelongToAPiece) {
    expectRead<VecT<2, double>>("\t1\n 2\r", {1, 2});
    expectRefusedUntouched<VecT<2, double>>("1\t2");
    expectRefused<VecT<2, double>>("1\t2 3", {-77, 3});
}

TEST(MathParseTest, TooFewPiecesLeaveTheValueUntouched) {
    for (const char* text : {"", " ", "1"}) {
        expectRefusedUntouched<VecT<2, double>>(text);
        expectRefusedUntouched<PosT<2, double>>(text);
    }
    expectRefusedUntouched<VecT<3, double>>("1 2");
    expectRefusedUntouched<VecT<4, double>>("1 2 3");
    expectRefusedUntouched<PosT<3, double>>("1 2");
    expectRefusedUntouched<QuatT<double>>("1 2 3");
    expectRefusedUntouched<MatT<3, double>>("1 2 3 4 5 6 7 8");
    expectRefusedUntouched<MatT<4, double>>("1 2 3 4 5 6 7 8 9");
    expectRefusedUntouched<MatT<4, double>>("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15");
}

TEST(MathParseTest, PieceThatFailsDoesNotStopTheOthers) {
    expectRefused<VecT<3, double>>("1 x 3", {1, -77, 3});
    expectRefused<VecT<2, double>>("x 2", {-77, 2});
    expectRefused<VecT<4, double>>("x y z 4", {-77, -77, -77, 4});
    expectRefused<PosT<2, double>>("1 x", {1, -77});
    expectRefused<PosT<3, double>>("x 2 3", {-77, 2, 3});
    expectRefused<QuatT<double>>("1 2 3 x", {1, 2, 3, -77});
    expectRefused<MatT<3, double>>("1 2 3 4 x 6 7 8 9", {1, 2, 3, 4, -77, 6, 7, 8, 9});
    expectRefused<MatT<4, double>>("x 2 3 4 5 6 7 8 9 10 11 12 13 14 15 x",
                                   {-77, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, -77});
}

TEST(MathParseTest, ComponentOutOfRangeFails) {
    expectRefused<VecT<2, double>>("1e999 2", {-77, 2});
    expectRead<VecT<2, double>>("1e-999 2", {0, 2});
}

TEST(MathParseTest, BracketsAndCommasAreNotTakenOff) {
    expectRefused<VecT<2, double>>("1, 2", {-77, 2});
    expectRefusedUntouched<VecT<2, double>>("1,2");
    expectRefusedUntouched<VecT<2, double>>("(1 2)");
    expectRefused<VecT<3, double>>("{1 2 3}", {-77, 2, -77});
}

// --- colours

TEST(ColourParseTest, FourNumbersAreAllComponents) {
    expectRead<RgbaT<double>>("1 0 0 0.5", {1, 0, 0, 0.5});
    expectRead<RgbaT<double>>("0.1 0.2 0.3 0", {0.1, 0.2, 0.3, 0});
}

TEST(ColourParseTest, ThreeNumbersAreAnOpaqueColour) {
    expectRead<RgbaT<double>>("1 0 0", {1, 0, 0, 1});
    expectRead<RgbaT<double>>("0.2 0.4 0.6", {0.2, 0.4, 0.6, 1});
    expectRead<RgbaT<double>>("  1  0  0  ", {1, 0, 0, 1});
}

TEST(ColourParseTest, FourthPieceThatFailsCountsAsNotThere) {
    expectRead<RgbaT<double>>("1 0 0 x", {1, 0, 0, 1});
    expectRead<RgbaT<double>>("1 0 0 x 5", {1, 0, 0, 1});
    expectRead<RgbaT<double>>("1 0 0 1e999", {1, 0, 0, 1});
}

TEST(ColourParseTest, PiecesBehindTheFourthAreIgnored) {
    expectRead<RgbaT<double>>("1 0 0 0.5 x", {1, 0, 0, 0.5});
}

TEST(ColourParseTest, FewerThanThreePiecesLeaveTheColourUntouched) {
    for (const char* text : {"", "  ", "1", "1 0", "x y"})
        expectRefusedUntouched<RgbaT<double>>(text);
}

TEST(ColourParseTest, FailureAmongThreePiecesLeavesTheAlpha) {
    expectRefused<RgbaT<double>>("1 x 3", {1, -77, 3, -77});
    expectRefused<RgbaT<double>>("x y z", {-77, -77, -77, -77});
}

TEST(ColourParseTest, AlphaOfAFailedFirstAttemptStaysWhenTheSecondFailsToo) {
    expectRefused<RgbaT<double>>("1 x 3 0.25", {1, -77, 3, 0.25});
    expectRefused<RgbaT<double>>("x 2 3 x", {-77, 2, 3, -77});
}

TEST(ColourParseTest, NamesAndHexadecimalsAreRefused) {
    for (const char* text : {"red", "#ff0000", "0xff0000", "#ff #00 #00"})
        expectRefusedUntouched<RgbaT<double>>(text);
}

}  // namespace

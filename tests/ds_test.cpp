// The growable array, the list of blocks and the map of 256 buckets.

#include <ko/ds.h>
#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using ko::String;
using ko::ds::HashMap;
using ko::ds::Vector;

template <class T>
std::vector<T> listOf(const Vector<T>& vector) {
    return std::vector<T>(vector.begin(), vector.end());
}

template <class T>
Vector<T> vectorOf(std::initializer_list<T> values) {
    Vector<T> vector;
    for (const T& value : values)
        vector.push_back(value);
    return vector;
}

// --- Vector

TEST(VectorTest, IsAllZerosAtFirst) {
    const Vector<int> vector;
    EXPECT_EQ(vector.data(), nullptr);
    EXPECT_EQ(vector.size(), 0U);
    EXPECT_EQ(vector.capacity(), 0U);
    EXPECT_TRUE(vector.isEmpty());
    EXPECT_EQ(vector.begin(), vector.end());
}

TEST(VectorTest, CapacityDoublesFromTwo) {
    Vector<int> vector;
    const unsigned long capacities[] = {2, 2, 4, 4, 8, 8, 8, 8, 16};
    for (unsigned long i = 0; i < std::size(capacities); ++i) {
        vector.push_back(int(i));
        EXPECT_EQ(vector.size(), i + 1);
        EXPECT_EQ(vector.capacity(), capacities[i]) << i + 1;
    }
}

TEST(VectorTest, CapacityRunsThroughThePowersOfTwo) {
    Vector<char> vector;
    unsigned long power = 2;
    for (unsigned long i = 1; i <= 1'000'000; ++i) {
        vector.push_back('x');
        if (i > power) power *= 2;
        ASSERT_EQ(vector.capacity(), power);
    }
}

TEST(VectorTest, KeepsElementsInOrderWhileItGrows) {
    Vector<std::string> vector;
    for (int i = 0; i < 1'000; ++i)
        vector.push_back("element number " + std::to_string(i));
    for (unsigned long i = 0; i < 1'000; ++i)
        EXPECT_EQ(vector[i], "element number " + std::to_string(i));
}

TEST(VectorTest, ElementsCanBeChangedInPlace) {
    Vector<int> vector = vectorOf({1, 2, 3});
    vector[1] = 20;
    for (int& element : vector)
        ++element;
    EXPECT_EQ(listOf(vector), (std::vector<int>{2, 21, 4}));
    EXPECT_EQ(vector.data()[2], 4);
}

TEST(VectorTest, IterationCoversTheElementsInUse) {
    const Vector<int> vector = vectorOf({1, 2, 3});
    EXPECT_EQ(vector.capacity(), 4U);
    EXPECT_EQ(vector.end() - vector.begin(), 3);
    EXPECT_EQ(vector.begin(), vector.data());
}

TEST(VectorTest, CopyHasElementsOfItsOwn) {
    Vector<std::string> vector = vectorOf<std::string>({"one", "two", "three"});
    Vector<std::string> copy(vector);
    copy[0] = "changed";
    vector.push_back("four");
    EXPECT_EQ(listOf(copy), (std::vector<std::string>{"changed", "two", "three"}));
    EXPECT_EQ(vector[0], "one");
}

TEST(VectorTest, CopyOfNothingIsEmpty) {
    const Vector<int> vector;
    const Vector<int> copy(vector);
    EXPECT_TRUE(copy.isEmpty());
    EXPECT_EQ(copy.data(), nullptr);
}

TEST(VectorTest, CopyGrowsOn) {
    const Vector<int> vector = vectorOf({1, 2, 3});
    Vector<int> copy(vector);
    for (int i = 4; i <= 9; ++i)
        copy.push_back(i);
    EXPECT_EQ(listOf(copy), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(vector.size(), 3U);
}

TEST(VectorTest, MoveHandsTheElementsOver) {
    Vector<int> vector = vectorOf({1, 2, 3});
    const int* const elements = vector.data();
    const Vector<int> taker(std::move(vector));
    EXPECT_EQ(taker.data(), elements);
    EXPECT_EQ(taker.size(), 3U);
    EXPECT_EQ(taker.capacity(), 4U);
}

TEST(VectorTest, MovedFromIsEmptyAndCanBeFilledAgain) {
    Vector<int> vector = vectorOf({1, 2, 3});
    const Vector<int> taker(std::move(vector));
    // NOLINTBEGIN(bugprone-use-after-move): what is left behind is the test
    EXPECT_EQ(vector.size(), 0U);
    EXPECT_EQ(vector.capacity(), 0U);
    EXPECT_EQ(vector.data(), nullptr);
    vector.push_back(9);
    // NOLINTEND(bugprone-use-after-move)
    EXPECT_EQ(listOf(vector), (std::vector<int>{9}));
    EXPECT_EQ(taker.size(), 3U);
}

TEST(VectorTest, AssignmentReplacesTheElements) {
    Vector<int> vector = vectorOf({1, 2, 3, 4, 5});
    const Vector<int> other = vectorOf({7, 8});
    vector = other;
    EXPECT_EQ(listOf(vector), (std::vector<int>{7, 8}));
    vector = vectorOf({9});
    EXPECT_EQ(listOf(vector), (std::vector<int>{9}));
    vector = Vector<int>();
    EXPECT_TRUE(vector.isEmpty());
}

// What holds one and has its operators made for it would end the program when memory ends.
TEST(VectorTest, OnlyMovesPromiseNotToThrow) {
    struct Holder {
        Vector<int> vector;
    };
    EXPECT_FALSE(std::is_nothrow_copy_assignable_v<Holder>);
    EXPECT_FALSE(std::is_nothrow_copy_constructible_v<Holder>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<Holder>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Holder>);
}

TEST(VectorTest, AssignmentToItselfKeepsTheElements) {
    Vector<std::string> vector = vectorOf<std::string>({"one", "two"});
    const Vector<std::string>& alias = vector;
    vector = alias;
    EXPECT_EQ(listOf(vector), (std::vector<std::string>{"one", "two"}));
}

TEST(VectorTest, OwnElementCanBePushedAtEverySize) {
    Vector<std::string> vector;
    vector.push_back("the first element, longer than any short text");
    for (int i = 1; i < 40; ++i)
        vector.push_back(vector[0]);
    for (const std::string& element : vector)
        EXPECT_EQ(element, "the first element, longer than any short text");
}

TEST(VectorTest, OwnElementCanBeMovedToTheEndWhileTheArrayGrows) {
    Vector<std::string> vector = vectorOf<std::string>({"a text too long to be kept inline", "b"});
    ASSERT_EQ(vector.size(), vector.capacity());
    vector.push_back(std::move(vector[0]));
    EXPECT_EQ(vector[2], "a text too long to be kept inline");
    EXPECT_EQ(vector[1], "b");
}

TEST(VectorTest, ElementsMayBeMovableOnly) {
    Vector<std::unique_ptr<int>> vector;
    for (int i = 0; i < 20; ++i)
        vector.push_back(std::make_unique<int>(i));
    const Vector<std::unique_ptr<int>> taker(std::move(vector));
    for (unsigned long i = 0; i < 20; ++i)
        EXPECT_EQ(*taker[i], int(i));
}

TEST(VectorTest, AssignmentUsesTheArrayThatIsThere) {
    Vector<int> vector = vectorOf({1, 2, 3});
    const int* const array = vector.data();
    const Vector<int> four = vectorOf({4, 5, 6, 7});
    const Vector<int> one = vectorOf({8});
    vector = four;
    EXPECT_EQ(vector.data(), array);
    EXPECT_EQ(listOf(vector), (std::vector<int>{4, 5, 6, 7}));
    vector = one;
    EXPECT_EQ(vector.data(), array);
    EXPECT_EQ(listOf(vector), (std::vector<int>{8}));
    EXPECT_EQ(listOf(four), (std::vector<int>{4, 5, 6, 7}));
}

TEST(VectorTest, SetSizeAddsDefaultElementsBehindItsOwn) {
    for (unsigned long before = 0; before < 5; ++before) {
        for (unsigned long size = before; size < 20; ++size) {
            Vector<String> vector;
            for (unsigned long i = 0; i < before; ++i)
                vector.push_back(String(i));
            vector.setSize(size);
            ASSERT_EQ(vector.size(), size);
            ASSERT_LE(size, vector.capacity());
            for (unsigned long i = 0; i < size; ++i)
                ASSERT_EQ(vector[i], i < before ? String(i) : String()) << before << " of " << size;
        }
    }
}

TEST(VectorTest, SetSizeBringsBackWhatWasForgotten) {
    Vector<int> vector;
    vector.push_back(1);
    vector.push_back(2);
    const int* const data = vector.data();
    vector.clear();
    vector.setSize(2);
    EXPECT_EQ(vector[1], 2);
    EXPECT_EQ(vector.data(), data);
}

TEST(VectorTest, PopBackTakesTheLastElementOff) {
    Vector<int> vector = vectorOf({1, 2, 3});
    vector.pop_back();
    EXPECT_EQ(listOf(vector), (std::vector<int>{1, 2}));
    EXPECT_EQ(vector.capacity(), 4U);
    vector.push_back(4);
    EXPECT_EQ(listOf(vector), (std::vector<int>{1, 2, 4}));
}

TEST(VectorTest, PopBackReleasesTheElement) {
    const auto token = std::make_shared<int>(0);
    Vector<std::shared_ptr<int>> vector;
    vector.push_back(token);
    EXPECT_EQ(token.use_count(), 2);
    vector.pop_back();
    EXPECT_EQ(token.use_count(), 1);
}

TEST(VectorTest, ElementsGoWithTheVector) {
    const auto token = std::make_shared<int>(0);
    {
        Vector<std::shared_ptr<int>> vector;
        for (int i = 0; i < 5; ++i)
            vector.push_back(token);
        const Vector<std::shared_ptr<int>> copy(vector);
        EXPECT_EQ(token.use_count(), 11);
    }
    EXPECT_EQ(token.use_count(), 1);
}

// Cannot be copied while `refuses`.
struct Refusing {
    int value = 0;
    bool refuses = false;

    Refusing() = default;
    Refusing(int number, bool refusing) : value(number), refuses(refusing) {}
    Refusing(const Refusing&) = delete;
    Refusing& operator=(const Refusing& other) {
        if (other.refuses) throw std::runtime_error("refused");
        value = other.value;
        return *this;
    }
    ~Refusing() = default;
};

TEST(VectorTest, ElementThatCannotBeCopiedIsNotCounted) {
    Vector<Refusing> vector;
    vector.push_back(Refusing(1, false));
    EXPECT_THROW(vector.push_back(Refusing(2, true)), std::runtime_error);
    EXPECT_EQ(vector.size(), 1U);
    EXPECT_EQ(vector.capacity(), 2U);
}

TEST(VectorTest, ElementThatCannotBeCopiedLeavesAFullVectorAsItWas) {
    Vector<Refusing> vector;
    vector.push_back(Refusing(1, false));
    vector.push_back(Refusing(2, false));
    EXPECT_THROW(vector.push_back(Refusing(3, true)), std::runtime_error);
    EXPECT_EQ(vector.size(), 2U);
    EXPECT_EQ(vector.capacity(), 2U);
    vector.push_back(Refusing(4, false));
    EXPECT_EQ(vector[0].value, 1);
    EXPECT_EQ(vector[1].value, 2);
    EXPECT_EQ(vector[2].value, 4);
}

// --- HashMap with keys whose hash is given

struct Key {
    unsigned long given = 0;
    std::string name;

    unsigned long hash() const { return given; }
};

using KeyMap = HashMap<Key, std::string>;

std::vector<std::string> namesOf(const KeyMap& map) {
    std::vector<std::string> names;
    for (const Key& key : map.keys())
        names.push_back(key.name);
    return names;
}

TEST(HashMapTest, IsEmptyAtFirst) {
    const KeyMap map;
    EXPECT_EQ(map.size(), 0U);
    EXPECT_TRUE(map.keys().isEmpty());
    EXPECT_EQ(map.findNode({0, "x"}), nullptr);
}

TEST(HashMapTest, Has256Buckets) { EXPECT_EQ(KeyMap::bucketCount, 256U); }

TEST(HashMapTest, FindsWhatWasInserted) {
    KeyMap map;
    map.insert({17, "a"}, "value");
    const KeyMap::Node* node = map.findNode({17, "a"});
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->hash, 17U);
    EXPECT_EQ(node->key.name, "a");
    EXPECT_EQ(node->value, "value");
}

TEST(HashMapTest, InsertReturnsTheNewNode) {
    KeyMap map;
    KeyMap::Node& node = map.insert({17, "a"}, "value");
    node.value = "changed";
    EXPECT_EQ(map.find({17, "a"}), "changed");
}

TEST(HashMapTest, DifferentKeysOfOneHashAreTheSameKey) {
    KeyMap map;
    map.insert({17, "first"}, "value of first");
    const KeyMap::Node* node = map.findNode({17, "never inserted"});
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->key.name, "first");
    EXPECT_EQ(map.find({17, "never inserted"}), "value of first");
}

TEST(HashMapTest, EqualKeysOfDifferentHashesAreDifferentKeys) {
    KeyMap map;
    map.insert({17, "same"}, "value");
    EXPECT_EQ(map.findNode({18, "same"}), nullptr);
    EXPECT_EQ(map.findNode({17 + 256, "same"}), nullptr);
}

TEST(HashMapTest, FirstInsertedOfOneHashWins) {
    KeyMap map;
    map.insert({17, "first"}, "1");
    map.insert({17, "second"}, "2");
    map.insert({17, "third"}, "3");
    EXPECT_EQ(map.findNode({17, "third"})->key.name, "first");
    EXPECT_EQ(map.find({17, "second"}), "1");
    EXPECT_EQ(map.size(), 3U);
    EXPECT_EQ(namesOf(map), (std::vector<std::string>{"first", "second", "third"}));
}

TEST(HashMapTest, HashesThatDifferOnlyAboveTheLowestByteAreToldApart) {
    KeyMap map;
    for (unsigned bit = 8; bit < 64; ++bit)
        map.insert({(1UL << bit) + 5, "bit"}, std::to_string(bit));
    for (unsigned bit = 8; bit < 64; ++bit)
        EXPECT_EQ(map.find({(1UL << bit) + 5, ""}), std::to_string(bit));
    EXPECT_EQ(map.findNode({5, ""}), nullptr);
}

TEST(HashMapTest, EveryBitOfTheHashCountsInAShortBucket) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        SCOPED_TRACE(bit);
        KeyMap map;
        map.insert({5, "without"}, "without");
        const Key with{5 ^ (1UL << bit), "with"};
        EXPECT_EQ(map.findNode(with), nullptr);
        map.insert(with, "with");
        EXPECT_EQ(map.find(with), "with");
        EXPECT_EQ(map.find({5, ""}), "without");
    }
}

TEST(HashMapTest, KeysComeBucketByBucketInOrderOfInsertion) {
    KeyMap map;
    map.insert({0x1FF, "in 255"}, "");
    map.insert({0x302, "first in 2"}, "");
    map.insert({0xFF00, "in 0"}, "");
    map.insert({0x002, "second in 2"}, "");
    map.insert({0xFFFFFFFFFFFFFF01, "in 1"}, "");
    map.insert({0x102, "third in 2"}, "");
    EXPECT_EQ(namesOf(map), (std::vector<std::string>{"in 0", "in 1", "first in 2", "second in 2",
                                                      "third in 2", "in 255"}));
}

TEST(HashMapTest, OnlyMovesPromiseNotToThrow) {
    EXPECT_FALSE(std::is_nothrow_copy_assignable_v<KeyMap>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<KeyMap>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<KeyMap>);
}

TEST(HashMapTest, NodesAreVisitedInOrderOfInsertionToo) {
    KeyMap map;
    for (unsigned long i = 0; i < 1000; ++i)
        map.insert({i * 7 % 1000, ""}, std::to_string(i));
    unsigned long expected = 0;
    map.forEachInserted(
        [&](const KeyMap::Node& node) { EXPECT_EQ(node.value, std::to_string(expected++)); });
    EXPECT_EQ(expected, 1000U);
}

TEST(HashMapTest, NodesStayWhereTheyAre) {
    KeyMap map;
    const KeyMap::Node* const first = &map.insert({1, ""}, "one");
    for (unsigned long i = 2; i < 1000; ++i)
        map.insert({i, ""}, "");
    EXPECT_EQ(first, map.findNode({1, ""}));
}

TEST(HashMapTest, ListIsInsertedInItsOrder) {
    const KeyMap map = {{{2, "a"}, "1"}, {{1, "b"}, "2"}, {{258, "c"}, "3"}};
    EXPECT_EQ(map.size(), 3U);
    EXPECT_EQ(namesOf(map), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(map.find({258, ""}), "3");
}

TEST(HashMapTest, FirstOfEqualKeysInAListWins) {
    const HashMap<String, int> map = {{"twice", 1}, {"once", 2}, {"twice", 3}};
    EXPECT_EQ(map.find("twice"), 1);
    EXPECT_EQ(map.find("once"), 2);
    EXPECT_EQ(map.size(), 3U);
}

TEST(HashMapTest, EmptyListGivesAnEmptyMap) {
    const KeyMap map(std::initializer_list<std::pair<Key, std::string>>{});
    EXPECT_EQ(map.size(), 0U);
}

TEST(HashMapTest, AbsentKeyYieldsTheOneMissingValue) {
    KeyMap map;
    KeyMap other;
    map.insert({1, "a"}, "value");
    std::string& missing = KeyMap::missing();
    EXPECT_EQ(&map.find({2, "b"}), &missing);
    EXPECT_EQ(&map.find({3, "c"}), &missing);
    EXPECT_EQ(&other.find({1, "a"}), &missing);
    EXPECT_EQ(&static_cast<const KeyMap&>(map).find({2, "b"}), &missing);
    EXPECT_EQ(&KeyMap::missing(), &missing);
    EXPECT_EQ(missing, "");
}

TEST(HashMapTest, LookingUpAnAbsentKeyInsertsNothing) {
    KeyMap map;
    (void)map.find({1, "a"});
    (void)map.findNode({1, "a"});
    EXPECT_EQ(map.size(), 0U);
    EXPECT_TRUE(map.keys().isEmpty());
}

TEST(HashMapTest, MissingValueIsADefaultOne) {
    EXPECT_EQ((HashMap<String, int>::missing()), 0);
    EXPECT_EQ((HashMap<String, int*>::missing()), nullptr);
}

TEST(HashMapTest, ValuesCanBeChangedThroughFind) {
    KeyMap map;
    map.insert({1, "a"}, "before");
    map.find({1, "a"}) = "after";
    EXPECT_EQ(static_cast<const KeyMap&>(map).find({1, "a"}), "after");
    map.findNode({1, "a"})->value = "later";
    EXPECT_EQ(map.find({1, "a"}), "later");
}

TEST(HashMapTest, LongBucketFindsTheFirstOfOneHash) {
    // Every second key has the hash of the one before it.
    KeyMap map;
    for (unsigned long i = 0; i < 2'000; ++i)
        map.insert({256 * (i / 2), std::to_string(i)}, std::to_string(i));
    for (unsigned long i = 0; i < 1'000; ++i) {
        const KeyMap::Node* node = map.findNode({256 * i, ""});
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->value, std::to_string(2 * i));
    }
    EXPECT_EQ(map.findNode({256'000, ""}), nullptr);
}

TEST(HashMapTest, FirstOfOneHashWinsAtEveryLengthOfABucket) {
    for (unsigned long length = 1; length <= 40; ++length) {
        SCOPED_TRACE(length);
        KeyMap map;
        for (unsigned long i = 0; i < length; ++i)
            map.insert({256 * i, ""}, std::to_string(i));
        for (unsigned long i = 0; i < length; ++i)
            map.insert({256 * i, ""}, "late");
        for (unsigned long i = 0; i < length; ++i)
            EXPECT_EQ(map.find({256 * i, ""}), std::to_string(i));
    }
}

TEST(HashMapTest, LongBucketOfOneHashKeepsEveryNode) {
    KeyMap map;
    for (int i = 0; i < 100; ++i)
        map.insert({5, std::to_string(i)}, std::to_string(i));
    EXPECT_EQ(map.find({5, "99"}), "0");
    EXPECT_EQ(map.size(), 100U);
    EXPECT_EQ(map.keys()[99].name, "99");
}

TEST(HashMapTest, CopyHasValuesOfItsOwn) {
    KeyMap map;
    for (unsigned long i = 0; i < 100; ++i)
        map.insert({256 * i, ""}, std::to_string(i));
    KeyMap copy(map);
    copy.find({256UL * 50, ""}) = "changed";
    copy.insert({256UL * 100, ""}, "100");
    EXPECT_EQ(map.find({256UL * 50, ""}), "50");
    EXPECT_EQ(map.size(), 100U);
    EXPECT_EQ(copy.find({256UL * 99, ""}), "99");
    EXPECT_EQ(copy.find({256UL * 100, ""}), "100");
    EXPECT_EQ(map.findNode({256UL * 100, ""}), nullptr);
}

// --- HashMap with texts as keys

TEST(StringKeyedMapTest, TellsTextsApart) {
    HashMap<String, unsigned long> map;
    for (unsigned long i = 0; i < 10'000; ++i)
        map.insert(String(i), i);
    for (unsigned long i = 0; i < 10'000; ++i)
        EXPECT_EQ(map.find(String(i)), i);
    EXPECT_EQ(map.findNode("10000"), nullptr);
    EXPECT_EQ(map.findNode(""), nullptr);
}

TEST(StringKeyedMapTest, KeysAreExact) {
    HashMap<String, int> map;
    map.insert("vec2", 1);
    EXPECT_NE(map.findNode("vec2"), nullptr);
    EXPECT_EQ(map.findNode("Vec2"), nullptr);
    EXPECT_EQ(map.findNode("vec2 "), nullptr);
    EXPECT_EQ(map.findNode(String("vec2\0", 5)), nullptr);
}

TEST(StringKeyedMapTest, NodeHasTheHashOfItsText) {
    HashMap<String, int> map;
    map.insert("float", 1);
    EXPECT_EQ(map.findNode("float")->hash, String("float").hash());
}

TEST(StringKeyedMapTest, KeysComeByTheLowestByteOfTheirHash) {
    HashMap<String, int> map;
    for (unsigned long i = 0; i < 1'000; ++i)
        map.insert(String(i), 0);
    unsigned long bucket = 0;
    for (const String& key : map.keys()) {
        EXPECT_LE(bucket, key.hash() % 256);
        bucket = key.hash() % 256;
    }
}

// --- HashMap with pointers as keys

struct Value {
    int number = 7;
};

// Addresses that differ only above their lowest byte, so that all share a bucket.
class OneBucket {
  public:
    explicit OneBucket(unsigned long count) : block_(count * 256) {}
    char* operator[](unsigned long i) { return &block_[i * 256]; }

  private:
    std::vector<char> block_;
};

TEST(PointerKeyedMapTest, FindInsertsADefaultValueForAnAbsentKey) {
    HashMap<int*, Value> map;
    int object = 0;
    EXPECT_EQ(map.find(&object).number, 7);
    EXPECT_EQ(map.size(), 1U);
    EXPECT_NE(&map.find(&object), &(HashMap<int*, Value>::missing()));
}

TEST(PointerKeyedMapTest, SecondFindGivesTheSameValue) {
    HashMap<int*, Value> map;
    int object = 0;
    Value& value = map.find(&object);
    value.number = 8;
    EXPECT_EQ(&map.find(&object), &value);
    EXPECT_EQ(map.find(&object).number, 8);
    EXPECT_EQ(map.size(), 1U);
}

TEST(PointerKeyedMapTest, FindNodeInsertsNothing) {
    HashMap<int*, Value> map;
    int object = 0;
    EXPECT_EQ(map.findNode(&object), nullptr);
    EXPECT_EQ(map.size(), 0U);
}

TEST(PointerKeyedMapTest, FindInAMapThatCannotChangeYieldsTheMissingValue) {
    const HashMap<int*, Value> map;
    int object = 0;
    EXPECT_EQ(&map.find(&object), &(HashMap<int*, Value>::missing()));
    EXPECT_EQ(map.size(), 0U);
}

TEST(PointerKeyedMapTest, HashIsTheAddress) {
    HashMap<int*, Value> map;
    int object = 0;
    map.find(&object);
    EXPECT_EQ(map.findNode(&object)->hash, reinterpret_cast<std::uintptr_t>(&object));
    EXPECT_EQ(map.findNode(&object)->key, &object);
}

TEST(PointerKeyedMapTest, NullIsAKeyLikeAnyOther) {
    HashMap<int*, Value> map;
    map.find(nullptr).number = 9;
    EXPECT_EQ(map.find(nullptr).number, 9);
    EXPECT_EQ(map.findNode(nullptr)->hash, 0U);
}

TEST(PointerKeyedMapTest, PointersThatShareABucketAreToldApart) {
    OneBucket bucket(3);
    HashMap<char*, Value> map;
    map.find(bucket[0]).number = 10;
    map.find(bucket[1]).number = 11;
    EXPECT_EQ(map.find(bucket[0]).number, 10);
    EXPECT_EQ(map.find(bucket[1]).number, 11);
    EXPECT_EQ(map.findNode(bucket[2]), nullptr);
}

TEST(PointerKeyedMapTest, ThousandsMayShareABucket) {
    constexpr unsigned long count = 5'000;
    OneBucket bucket(count + 1);
    HashMap<char*, unsigned long> map;
    for (unsigned long i = 0; i < count; ++i)
        map.find(bucket[i]) = i + 1;
    EXPECT_EQ(map.size(), count);
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_EQ(map.find(bucket[i]), i + 1);
    EXPECT_EQ(map.size(), count);
    EXPECT_EQ(map.findNode(bucket[count]), nullptr);
}

TEST(PointerKeyedMapTest, KeysOfALongBucketKeepTheOrderOfInsertion) {
    constexpr unsigned long count = 3'000;
    OneBucket bucket(count);
    HashMap<char*, int> map;
    std::vector<char*> inserted;
    for (unsigned long i = 0; i < count; ++i) {
        inserted.push_back(bucket[i * 1'009 % count]);
        map.find(inserted.back());
    }
    EXPECT_EQ(listOf(map.keys()), inserted);
}

TEST(PointerKeyedMapTest, AllBucketsTogetherKeepTheirValues) {
    std::vector<char> block(100'000);
    HashMap<char*, unsigned long> map;
    for (unsigned long i = 0; i < block.size(); ++i)
        map.find(&block[i]) = i;
    for (unsigned long i = 0; i < block.size(); ++i)
        ASSERT_EQ(map.find(&block[i]), i);
    EXPECT_EQ(map.size(), block.size());
    EXPECT_EQ(map.keys().size(), block.size());
}

// --- BlockList

TEST(BlockLists, KeepTheirElementsWhereTheyAre) {
    ko::ds::BlockList<std::string> list;
    std::vector<const std::string*> places;
    for (int i = 0; i < 1000; ++i)
        places.push_back(&list.emplace(std::to_string(i)));
    ko::ds::BlockList<std::string> moved(std::move(list));
    EXPECT_EQ(1000U, moved.size());
    unsigned long at = 0;
    moved.forEach([&](const std::string& text) {
        EXPECT_EQ(places[at], &text);
        EXPECT_EQ(std::to_string(at), text);
        ++at;
    });
    EXPECT_EQ(1000U, at);
    moved = ko::ds::BlockList<std::string>();
    EXPECT_EQ(0U, moved.size());
    moved.forEach([](const std::string&) { FAIL(); });
}

TEST(BlockLists, AreAsTheyWereWhenAnElementCannotBeMade) {
    struct RefusedIfAsked {
        explicit RefusedIfAsked(bool refuses) {
            if (refuses) throw std::runtime_error("refused");
        }
    };
    ko::ds::BlockList<RefusedIfAsked> list;
    for (int i = 0; i < 5; ++i) {
        EXPECT_THROW(list.emplace(true), std::runtime_error);
        list.emplace(false);
        EXPECT_EQ(static_cast<unsigned long>(i) + 1, list.size());
    }
}

}  // namespace

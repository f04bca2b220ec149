#include "core/vector_with_keys.h"

namespace {

using List = VectorWithKeys<std::uint32_t, std::string>;

/// Keys and values in order, and the index checked against them on the way.
std::string contentOf(const List& list) {
    std::string content;
    for (const auto& [key, value] : list) {
        content += std::to_string(key) + value + ' ';
        EXPECT_EQ(list.find(key), &value) << "the index misses its entry";
    }
    return content;
}

class VectorWithKeysTest : public ::testing::Test {
  protected:
    VectorWithKeysTest() {
        for (const auto* value : {"a", "b", "c"}) {
            list.append(value);
        }
    }

    List list;
};

TEST_F(VectorWithKeysTest, IndexFollowsEntriesThatMove) {
    EXPECT_TRUE(list.swapPositions(0, 2));
    EXPECT_EQ(contentOf(list), "2c 1b 0a ");
    EXPECT_TRUE(list.eraseAt(0));
    EXPECT_EQ(contentOf(list), "1b 0a ");
    const auto next = list.erase(list.begin());
    EXPECT_EQ(next->value, "a");
    EXPECT_EQ(contentOf(list), "0a ");
    EXPECT_EQ(list.find(1), nullptr);
}

TEST_F(VectorWithKeysTest, SmallestFreeKeyIsHandedOutAndComesLast) {
    EXPECT_TRUE(list.eraseKey(1));
    EXPECT_EQ(list.append("d").key, 1U);
    EXPECT_EQ(contentOf(list), "0a 2c 1d ");
    list = List(10, 5);
    list.append("a");
    list.append("b");
    EXPECT_EQ(contentOf(list), "10a 15b ");
}

TEST_F(VectorWithKeysTest, PlacesAndKeysThatAreNotThereChangeNothing) {
    EXPECT_FALSE(list.swapPositions(0, 3));
    EXPECT_FALSE(list.eraseAt(3));
    EXPECT_FALSE(list.eraseKey(7));
    EXPECT_THROW(list.at(3), std::out_of_range);
    EXPECT_EQ(list.append(1, "again").value, "b") << "a taken key keeps its entry";
    EXPECT_EQ(contentOf(list), "0a 1b 2c ");
}

}  // namespace

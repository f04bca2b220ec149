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

TEST(VectorWithKeysTest, IndexFollowsEntriesThatMoveAndTheSmallestFreeKeyComesLast) {
    List list;
    for (const auto* value : {"a", "b", "c"}) {
        list.append(value);
    }
    EXPECT_EQ(contentOf(list), "0a 1b 2c ");
    EXPECT_FALSE(list.swapPositions(0, 3) || list.swapPositions(3, 0) || list.eraseAt(3) ||
                 list.eraseKey(7));
    EXPECT_THROW(list.at(3), std::out_of_range);
    EXPECT_EQ(list.append(1, "again").value, "b") << "a taken key keeps its entry";
    EXPECT_TRUE(list.swapPositions(0, 2));
    EXPECT_EQ(contentOf(list), "2c 1b 0a ");
    EXPECT_TRUE(list.eraseKey(1));
    EXPECT_EQ(list.append("d").key, 1U);
    EXPECT_EQ(contentOf(list), "2c 0a 1d ");
    EXPECT_EQ(list.erase(list.begin())->value, "a");
    EXPECT_EQ(contentOf(list), "0a 1d ");
    EXPECT_EQ(list.find(2), nullptr);
    list = List(10, 5);
    list.append("a");
    list.append("b");
    EXPECT_EQ(contentOf(list), "10a 15b ");
    list.eraseIf([](const auto& entry) { return entry.value == "a"; });
    EXPECT_EQ(contentOf(list), "15b ");
    EXPECT_EQ(list.append("c").key, 10U);
    list.append("d");
    list.clear();
    EXPECT_TRUE(list.empty() && !list.contains(15));
    EXPECT_EQ(list.append("e").key, 10U);
}

}  // namespace

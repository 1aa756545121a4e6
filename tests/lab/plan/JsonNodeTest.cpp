#include "lab/plan/JsonNode.h"

#include <gtest/gtest.h>

using lab::NodeOfJson;
using lab::TomlNode;
using nlohmann::json;
using Kind = TomlNode::Kind;

TEST(JsonNodeTest, EachKindOfValue) {
    EXPECT_EQ(NodeOfJson("x").kind, Kind::kText);
    EXPECT_EQ(NodeOfJson("x").text, "x");
    EXPECT_EQ(NodeOfJson(-7).kind, Kind::kWhole);
    EXPECT_EQ(NodeOfJson(-7).whole, -7);
    EXPECT_EQ(NodeOfJson(0.5).kind, Kind::kFraction);
    EXPECT_EQ(NodeOfJson(0.5).number, 0.5);
    EXPECT_TRUE(NodeOfJson(true).truth);
    EXPECT_EQ(NodeOfJson(nullptr).kind, Kind::kDate);
    EXPECT_EQ(NodeOfJson(json::array({1, 2})).items.at(1).whole, 2);
    const TomlNode table = NodeOfJson({{"I", "II"}});
    EXPECT_EQ(table.kind, Kind::kTable);
    EXPECT_EQ(table.entries.at(0).key, "I");
    EXPECT_EQ(table.entries.at(0).value.text, "II");
}

// 2^64 - 1 would be -1 as a whole number.
TEST(JsonNodeTest, AWholeNumberThatDoesNotFitIsNone) {
    const TomlNode node = NodeOfJson(json::parse("18446744073709551615"));
    EXPECT_EQ(node.kind, Kind::kFraction);
    EXPECT_EQ(node.number, 18446744073709551615.0);
}

#include <gtest/gtest.h>

#include "ProtocolTestSupport.h"
#include "protocol/PZJSONNumber.h"
#include "protocol/PZJSONTree.h"

namespace {

void pushValue(PZJSONTree& tree, std::string_view text) {
    tree.addValue();
    for (const char c : text) {
        tree.addCharToLastValue(c);
    }
}

TEST(PZJSONValue, getValue_table_convertsBareValues) {
    const std::pair<std::string_view, std::optional<PZValue>> cases[] = {
        {"null", PZValue()}, {"true", PZValue(true)}, {"false", PZValue(false)}, {"12.5", PZValue(12.5)},
        {"-3", PZValue(-3)}, {"1e2", PZValue(100)},   {"", PZValue(0)},          {"1.2.3", std::nullopt},
    };
    LogCapture log{LogCapture::Echo::Silenced};
    for (const auto& [text, expected] : cases) {
        PZJSONValue value;
        for (const char c : text) {
            value.addChar(c);
        }
        EXPECT_EQ(value.getValue(), expected) << text;
    }
}

TEST(PZJSONTree, setEndOfLastObject_objectWithPendingKey_staysAndTheKeyGetsNull) {
    LogCapture log{LogCapture::Echo::Silenced};
    PZJSONTree tree;
    tree.addObject();
    tree.addFieldToLastObject("a");
    EXPECT_FALSE(tree.setEndOfLastObject());
    EXPECT_EQ(tree.depth(), 1u);
    // The object was its own parent: the pending key was given the null marker, so it now finishes.
    const auto value = tree.setEndOfLastObject();
    ASSERT_TRUE(value && value->isDictionary());
    EXPECT_TRUE(value->asDictionary()->find("a")->isNull());
    EXPECT_TRUE(log.lines().empty());
}

TEST(PZJSONTree, getValueForField_duplicateKeys_findsFirstWhileDictionaryKeepsLast) {
    PZJSONTree tree;
    tree.addObject();
    tree.addFieldToLastObject("k");
    pushValue(tree, "1");
    EXPECT_FALSE(tree.setEndOfLastObject());
    tree.addFieldToLastObject("k");
    pushValue(tree, "2");
    EXPECT_FALSE(tree.setEndOfLastObject());
    EXPECT_EQ(*tree.getValueOfCurrentObjectForField("k"), PZValue(1));
    const auto value = tree.setEndOfLastObject();
    ASSERT_TRUE(value);
    EXPECT_EQ(value->asDictionary()->size(), 1u);
    EXPECT_EQ(*value->asDictionary()->find("k"), PZValue(2));
}

TEST(PZJSONTree, addToLast_wrongTopElement_logsTheKeptTexts) {
    LogCapture log{LogCapture::Echo::Silenced};
    PZJSONTree tree;
    tree.addFieldToLastObject("k");
    tree.addCharToLastString('x');
    tree.addCharToLastValue('x');
    tree.addValueToLastField(PZValue(1));
    tree.addValueToLastArray(PZValue(1));
    tree.addArray();
    tree.addFieldToLastObject("k");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "addFieldToLastObject: last object is not a PZJSONObject",
                               "addCharToLastString: last object is not a PZJSONObject",
                               "addCharToLastValue: last object is not a PZJSONValue",
                               "addValueToLastField: last object is not a PZJSONObject",
                               "addValueToLastArray: last object is not a PZJSONObject",
                               "addFieldToLastObject: last object is not a PZJSONObject",
                           }));
}

TEST(PZJSONTree, setEndOfLastObject_parentIsStringOrValue_logsAndReturnsNothing) {
    LogCapture log{LogCapture::Echo::Silenced};
    PZJSONTree tree;
    tree.addString();
    pushValue(tree, "1");
    EXPECT_FALSE(tree.setEndOfLastObject());
    tree.addValue();
    tree.addString();
    EXPECT_FALSE(tree.setEndOfLastObject());
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"setEndOfLastObject error string",
                                                     "setEndOfLastObject error value"}));
}

TEST(PZJSONObject, addFieldAndValue_mismatch_logsAndRepairsOrDrops) {
    LogCapture log{LogCapture::Echo::Silenced};
    PZJSONObject object;
    object.addValueToLastField(PZValue(1));
    object.addField("a");
    object.addField("b");
    object.addValueToLastField(std::nullopt);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "PZJSONObject error: there isn't field to add value",
                               "PZJSONObject error: the number of fields is more than number of values"}));
    const auto dictionary = object.getDictionary();
    ASSERT_TRUE(dictionary);
    EXPECT_TRUE(dictionary->find("a")->isNull());
    EXPECT_TRUE(dictionary->find("b")->isNull());
    EXPECT_EQ(object.getValueForField("missing"), nullptr);
}

TEST(PZJSONTree, getCurrentAndSuperObjectType_nestedElements_followTheTopTwo) {
    PZJSONTree tree;
    EXPECT_EQ(tree.getCurrentObjectType(), PZJSONTree::kOther);
    tree.addObject();
    EXPECT_EQ(tree.getSuperObjectType(), PZJSONTree::kOther);
    tree.addArray();
    tree.addString();
    EXPECT_EQ(tree.getCurrentObjectType(), PZJSONTree::kString);
    EXPECT_EQ(tree.getSuperObjectType(), PZJSONTree::kArray);
}

TEST(PZJSONNumber, getNumber_anyText_givesNothing) {
    PZJSONNumber number;
    number.addChar('%');
    number.addChar('3');
    number.addChar('1');
    number.decodeWithRawdecoding();
    EXPECT_EQ(number.numberString(), "1");
    EXPECT_FALSE(number.getNumber());
}

} // namespace

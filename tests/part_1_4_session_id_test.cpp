// Part 1.4: session identifiers.
#include "qkl/message/QKLSessionID.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "qkl/common/GenerateID.h"

using QKL::QKLSessionID;

namespace {

// The out-parameter readers must leave this untouched when a '.' is missing.
const std::string kUntouched = "untouched";

std::string eidInto(const QKLSessionID& id) {
    std::string out = kUntouched;
    id.getEID(out);
    return out;
}

std::string targetEidInto(const QKLSessionID& id) {
    std::string out = kUntouched;
    id.getTargetEID(out);
    return out;
}

}  // namespace

// ---- Edge cases worth testing -------------------------------------------------

// ""qkl.7" gives version 0 and type 0; `getEID` leaves its out-parameter unchanged."
TEST(Part14EdgeCases, Qkl7GivesVersion0AndType0AndGetEIDLeavesOutParameterUnchanged) {
    const QKLSessionID id("qkl.7");
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
    EXPECT_EQ(kUntouched, eidInto(id));
    EXPECT_EQ("", id.getEID());
}

// "For "qkl.1.2.a.b.c.X" (EID "a.b"): `getEID` gives "a"; `getTargetEID` gives "c"."
TEST(Part14EdgeCases, EIDWithDotGivesGetEIDAAndGetTargetEIDC) {
    const QKLSessionID id("qkl.1.2.a.b.c.X");
    EXPECT_EQ("a", id.getEID());
    EXPECT_EQ("a", eidInto(id));
    EXPECT_EQ("c", id.getTargetEID());
    EXPECT_EQ("c", targetEidInto(id));
    EXPECT_EQ(1, id.getVersion());
    EXPECT_EQ(2, id.getType());
}

// "`create(40500, 1, "e1", "e2")` then `getVersion()` gives 40500, `getType()`
// 1, `getEID()` "e1", `getTargetEID()` "e2" when the generated ID has no "."."
TEST(Part14EdgeCases, Create40500And1AndE1AndE2ReadsBackItsFields) {
    QKLSessionID id;
    id.create(40500, 1, "e1", "e2");
    EXPECT_EQ(40500, id.getVersion());
    EXPECT_EQ(1, id.getType());
    EXPECT_EQ("e1", id.getEID());
    EXPECT_EQ("e2", id.getTargetEID());
}

// "IDs differing only in letter case compare equal."
TEST(Part14EdgeCases, IDsDifferingOnlyInLetterCaseCompareEqual) {
    const QKLSessionID lower("qkl.40500.1.node-a.node-b.1b4e28ba-2fa1-41d2-883f-0016d3cca427");
    const QKLSessionID upper("QKL.40500.1.NODE-A.Node-B.1B4E28BA-2FA1-41D2-883F-0016D3CCA427");
    EXPECT_TRUE(lower == upper);
    EXPECT_FALSE(lower != upper);
}

// ---- create ---------------------------------------------------------------------

// "it must contain no "." for `getTargetEID` to work."
TEST(Part14Create, GeneratedIDHasNoDot) {
    for (int i = 0; i < 100; ++i) {
        const std::string generated = QKL::generateID();
        EXPECT_FALSE(generated.empty());
        EXPECT_EQ(std::string::npos, generated.find('.')) << generated;
    }
}

// "replaces the text by "qkl." + version + "." + type + "." + eid + "." +
// targetEid + "." + the generated ID"
TEST(Part14Create, TextIsSixFieldsEndingInTheGeneratedID) {
    QKLSessionID id("old text");
    id.create(40500, 1, "node-a", "node-b");
    const std::string prefix = "qkl.40500.1.node-a.node-b.";
    ASSERT_EQ(prefix, id.substr(0, prefix.size()));
    const std::string generated = id.substr(prefix.size());
    EXPECT_EQ(QKL::generateID().size(), generated.size());
    EXPECT_EQ(std::string::npos, generated.find('.'));
}

// "capacity for 256 characters is reserved."
TEST(Part14Create, ReservesCapacityFor256Characters) {
    QKLSessionID id;
    id.create(1, 2, "e", "t");
    EXPECT_GE(id.capacity(), 256u);
}

TEST(Part14Create, EachCreateGivesANewIdentifier) {
    QKLSessionID first;
    QKLSessionID second;
    first.create(40500, 1, "e1", "e2");
    second.create(40500, 1, "e1", "e2");
    EXPECT_FALSE(first == second);
}

TEST(Part14Create, NegativeNumbersAndEmptyEIDsReadBack) {
    QKLSessionID id;
    id.create(-3, -40, "", "");
    EXPECT_EQ(-3, id.getVersion());
    EXPECT_EQ(-40, id.getType());
    EXPECT_EQ("", eidInto(id));
    EXPECT_EQ("", targetEidInto(id));
}

// The text is built aside, so the identifier's own text may be an argument.
TEST(Part14Create, EIDMayBeTheIdentifierItself) {
    QKLSessionID id("self");
    id.create(7, 8, id, id);
    EXPECT_EQ("qkl.7.8.self.self.", id.substr(0, 18));
}

// ---- readers --------------------------------------------------------------------

// "The first three fields are found from the front and the target EID from the
// back, deliberately"
TEST(Part14Readers, TargetEIDIsFoundFromTheEndWhenTheEIDHasDots) {
    QKLSessionID id;
    id.create(40500, 2, "host.example.com", "peer");
    EXPECT_EQ("host", id.getEID());
    EXPECT_EQ("peer", id.getTargetEID());
    EXPECT_EQ(40500, id.getVersion());
}

// "When a "." is missing the out-parameter is left as it was (the by-value
// form then gives an empty string)."
TEST(Part14Readers, MissingDotAroundEIDLeavesOutParameterUnchanged) {
    for (const char* text : {"", "qkl", "qkl.1.2", "qkl.1.2.eid"}) {
        const QKLSessionID id(text);
        EXPECT_EQ(kUntouched, eidInto(id)) << '"' << text << '"';
        EXPECT_EQ("", id.getEID()) << '"' << text << '"';
    }
}

// "... with the same rule for a missing "."" -- counted from the end, so a
// '.' at position 0 is the last one and no second-to-last precedes it.
TEST(Part14Readers, MissingDotAroundTargetEIDLeavesOutParameterUnchanged) {
    for (const char* text : {"", "qkl", ".", ".x", "qkl.1"}) {
        const QKLSessionID id(text);
        EXPECT_EQ(kUntouched, targetEidInto(id)) << '"' << text << '"';
        EXPECT_EQ("", id.getTargetEID()) << '"' << text << '"';
    }
}

// Two dots are enough for the target EID: it is whatever lies before the last.
TEST(Part14Readers, TargetEIDNeedsOnlyTheLastTwoDots) {
    EXPECT_EQ("1", QKLSessionID("qkl.1.2").getTargetEID());
    EXPECT_EQ("", QKLSessionID("..").getTargetEID());
}

TEST(Part14Readers, EmptyFieldsBetweenDotsAreFoundAndEmpty) {
    const QKLSessionID id("......");
    EXPECT_EQ("", eidInto(id));
    EXPECT_EQ("", targetEidInto(id));
    EXPECT_EQ(0, id.getVersion());
    EXPECT_EQ(0, id.getType());
}

// "converted with `atoi`": leading digits count, other text gives 0.
TEST(Part14Readers, NumbersReadLikeAtoi) {
    EXPECT_EQ(12, QKLSessionID("qkl.12ab.x3.e.t.id").getVersion());
    EXPECT_EQ(0, QKLSessionID("qkl.12ab.x3.e.t.id").getType());
    EXPECT_EQ(-5, QKLSessionID("qkl. -5.+6.e.t.id").getVersion());
    EXPECT_EQ(6, QKLSessionID("qkl. -5.+6.e.t.id").getType());
    EXPECT_EQ(INT_MAX, QKLSessionID("qkl.2147483647.-2147483648.e.t.id").getVersion());
    EXPECT_EQ(INT_MIN, QKLSessionID("qkl.2147483647.-2147483648.e.t.id").getType());
}

// Version and type only need the '.' on either side of their own field.
TEST(Part14Readers, VersionAndTypeNeedOnlyTheirOwnDots) {
    EXPECT_EQ(40500, QKLSessionID("qkl.40500.").getVersion());
    EXPECT_EQ(0, QKLSessionID("qkl.40500.").getType());
    EXPECT_EQ(3, QKLSessionID("qkl.40500.3.").getType());
}

// ---- equality -------------------------------------------------------------------

TEST(Part14Equality, DifferentTextsAreNotEqual) {
    EXPECT_FALSE(QKLSessionID("qkl.1.2.a.b.X") == QKLSessionID("qkl.1.2.a.b.Y"));
    EXPECT_FALSE(QKLSessionID("qkl.1.2.a.b.X") == QKLSessionID("qkl.1.2.a.b.X2"));
    EXPECT_TRUE(QKLSessionID("qkl.1.2.a.b.X") != QKLSessionID("qkl.1.2.a.b.Y"));
    EXPECT_TRUE(QKLSessionID() == QKLSessionID(""));
}

// The class adds no fields: it is the text, usable wherever a std::string is.
TEST(Part14Equality, SessionIDIsItsText) {
    EXPECT_EQ(sizeof(std::string), sizeof(QKLSessionID));
    const QKLSessionID id("qkl.1.2.a.b.X");
    const std::string& text = id;
    EXPECT_EQ("qkl.1.2.a.b.X", text);
}

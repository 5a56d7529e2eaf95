// The owning handles: each releases once, the right way, on every path out; the typed reads and the range.
#include <climits>

#include "qkl/message/QKLHandles.h"
#include "support/TreeModel.h"

using namespace QKL;
using namespace QKLTest;

static MessagePtr agentReply() {  // three "env" of five typed values under packet/envm
    MessagePtr message = makeMessage("packet");
    IteratorPtr at = iterate(*message);
    EXPECT_EQ(0, at->newChild("envm"));
    for (int i = 0; i < 3; ++i)  // || stops at the first failure, left to right
        EXPECT_FALSE(at->newChild("env") || at->putValue("e" + std::to_string(i), "eid") || at->putValue(40 + i, "cpu") ||
                     at->putValueLongLong(LLONG_MAX - i, "memory") || at->putValueDouble(0.25 * i, "load") ||
                     at->putValue(i == 1 ? "false" : "1", "up") || at->seekUp());
    return message;
}

// The packet for each peer form reads back with every value, through the range and the typed reads.
TEST(Handles, SerializeParseGetRoundTripsInEveryPeerForm) {
    const MessagePtr sent = agentReply();
    for (const int peer : {40500, 40000, 39999, 0}) {
        SCOPED_TRACE(peer);
        const Buffer packet = serialize(*sent, peer);
        EXPECT_EQ(peer >= 40000, packet.view().substr(0, 1) != "<");
        EXPECT_EQ(peer >= 40000 ? bytesOf(*sent).size() : std::strlen(packet.data()) + 1, packet.size());
        const MessagePtr received = parse(packet.view());
        ASSERT_TRUE(received);
        EXPECT_EQ(textOf(*sent), textOf(*received));
        const ConstIteratorPtr envm = iterate(static_cast<const QKLMessage&>(*received));
        ASSERT_EQ(0, envm->seek("envm"));
        int i = 0;
        for (QKLMessageIterator& env : children(*envm)) {
            EXPECT_EQ("e" + std::to_string(i), get<std::string>(env, "eid"));
            EXPECT_EQ(40 + i, get<int>(env, "cpu"));
            EXPECT_EQ(LLONG_MAX - i, get<long long>(env, "memory"));
            EXPECT_EQ(0.25 * i, get<double>(env, "load"));
            EXPECT_EQ(i != 1, get<bool>(env, "up"));
            ++i;
        }
        EXPECT_EQ(3, i);
        EXPECT_EQ("envm", envm->curName());  // the range's iterators are its own
        EXPECT_EQ(40, get<int>(*envm, "env/cpu"));  // the first "env"
        const Buffer subtree = serialize(*envm);  // placed under another message's root
        const MessagePtr holder = makeMessage("packet");
        const IteratorPtr under = iterate(*holder);
        ASSERT_EQ(0, holder->deserialize(subtree.data(), int(subtree.size()), under.get()));
        EXPECT_EQ(40, get<int>(*under, "envm/env/cpu"));
    }
    EXPECT_EQ(textOf(*sent), toText(*sent).view());  // without the final NUL
}

// The caching header setters reach the raw serialize() only through saveChanges(); QKL::serialize saves first.
TEST(Handles, SerializeCarriesTheCachedHeaderFields) {
    for (const bool raw : {true, false}) {
        SCOPED_TRACE(raw ? "raw serialize" : "QKL::serialize");
        const MessagePtr sent = makeMessage("packet");
        ASSERT_FALSE(sent->setUid("u-1") || sent->setSession("s-1") || sent->setID("id-1", false));
        const MessagePtr received = parse(raw ? bytesOf(*sent) : std::string(serialize(*sent).view()));
        ASSERT_TRUE(received);
        std::string uid, session, id;
        EXPECT_EQ(raw ? -1 : 0, received->getUid(uid));
        received->getSession(session);
        received->getID(id);
        EXPECT_EQ(raw ? "" : "u-1", uid);
        EXPECT_EQ(raw ? "" : "s-1", session);
        EXPECT_EQ(raw ? "" : "id-1", id);
    }
}

// An empty message takes text; parse reads text as well as binary documents, when the text's NUL is counted.
TEST(Handles, EmptyMessagesAndTextInput) {
    const MessagePtr empty = makeMessage();
    ASSERT_TRUE(empty);
    EXPECT_STREQ("", toText(*empty).c_str());  // nothing to render: an empty Buffer, printable
    const std::string text = "<packet><a>1</a></packet>";
    ASSERT_EQ(0, empty->fromText(text.c_str(), nullptr));
    EXPECT_FALSE(parse(text));
    const MessagePtr parsed = parse(text.c_str(), text.size() + 1);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(textOf(*empty), textOf(*parsed));
}

TEST(Handles, FailuresGiveNullAndNullopt) {
    const std::string packet = bytesOf(*agentReply());
    for (const std::string& refused : {std::string(), std::string("<packet>"), packet.substr(0, packet.size() - 1)})
        EXPECT_FALSE(parse(refused)) << refused.size();
    EXPECT_FALSE(parse(packet.data(), size_t(INT_MAX) + 1));  // refused before a byte is read
    EXPECT_FALSE(makeMessage(""));
    const MessagePtr message = agentReply();
    const IteratorPtr at = iterate(*message);
    EXPECT_EQ(std::nullopt, get<int>(*at, "envm/env/nothing"));
    EXPECT_EQ(0, at->seek("envm/env/cpu"));
    EXPECT_TRUE(children(*at).begin() == Children::End());  // a leaf has no children
}

// Leaving a loop in the middle releases its iterator; a shared message is released once per handle.
static std::string firstBusy(const QKLMessageIterator& envm) {
    for (QKLMessageIterator& env : children(envm))
        if (get<int>(env, "cpu") > 40) return env.curName() + *get<std::string>(env, "eid");
    return "";
}

TEST(Handles, EarlyReturnsMovesAndSharingReleaseEachOnce) {
    MessagePtr message = agentReply();
    const IteratorPtr envm = iterate(*message);
    ASSERT_EQ(0, envm->seek("envm"));
    EXPECT_EQ("enve1", firstBusy(*envm));
    int roots = 0;
    for (QKLMessageIterator& envmOfRoot : children(*iterate(*message)))  // the temporary iterator is gone by now
        roots += envmOfRoot.curName() == "envm";
    EXPECT_EQ(1, roots);
    MessagePtr sharer(message->copy(false));
    EXPECT_EQ(2, message->shareCount());
    { const MessagePtr moved = std::move(sharer); }
    EXPECT_EQ(1, message->shareCount());
    Buffer first = serialize(*message), second = toText(*message);
    const char* const bytes = first.data();
    second = std::move(first);  // frees the text it held
    EXPECT_EQ(bytes, second.data());
    EXPECT_FALSE(first);
    Buffer third(std::move(second));
    EXPECT_EQ(bytes, third.data());
    EXPECT_EQ(0u, second.size());
}

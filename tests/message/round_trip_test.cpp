// Generated trees built through every path and read back against the model; random sharing.
#include <algorithm>

#include "support/TreeModel.h"

using namespace QKL;
using namespace QKLTest;

// The value at the current element. A write by ID 0 stays there, one by "" ends on the parent.
template <class Here>
static int access(QKLMessageIterator& at, TreeNode& node, bool write, const Here& here) {
    switch (node.kind) {
        case Kind::Text: return write ? at.putValue(node.text, here) : at.getValue(node.text, here);
        case Kind::Base64: return write ? at.putValueBase64(node.text, here) : at.getValueBase64(node.text, here);
        case Kind::Double: return write ? at.putValueDouble(node.real, here) : at.getValueDouble(node.real, here);
        case Kind::Int: return write ? at.putValue(node.integer, here) : at.getValue(node.integer, here);
        case Kind::LongLong: return write ? at.putValueLongLong(node.wide, here) : at.getValueLongLong(node.wide, here);
        case Kind::Time: return write ? at.putValueTime(node.time, here) : at.getValueTime(node.time, here);
        case Kind::TimeZone:
            return write ? at.putValueTimeZone(node.time, node.zone, here) : at.getValueTimeZone(node.time, node.zone, here);
        default: return write ? at.seekUp() : 0;
    }
}

static void build(QKLMessageIterator& at, TreeNode& parent, bool byID) {
    for (TreeNode& node : parent.children) {
        const int id = byID ? getElemIdByStringDefault(node.name.c_str(), node.name.size()) : 0;
        const int ns = byID ? getNSIdByStringDefault(node.ns.c_str(), node.ns.size()) : 0;
        const size_t colon = node.type.rfind(':');
        ASSERT_EQ(0, id != 0 ? at.newChild(id) : at.newChild(node.name));
        build(at, node, byID);  // children first: only a container takes a complex type
        ASSERT_EQ(0, node.type.empty() ? 0 : at.setComplexType(node.type.substr(0, colon), node.type.substr(colon + 1)));
        ASSERT_EQ(0, node.ns.empty() ? 0 : ns != 0 ? at.setNamespace(ns) : at.setNamespace(node.ns));
        ASSERT_EQ(0, byID ? access(at, node, true, 0) : access(at, node, true, std::string())) << dump(node);
        ASSERT_EQ(0, byID && node.kind != Kind::Empty && node.kind != Kind::Container ? at.seekUp() : 0);
    }
}

static QKLMessage* built(QKLMessage* message, TreeNode model, bool byID) {
    build(*Iterator(message->newIterator()), model, byID);
    return message;
}

static TreeNode readTree(QKLMessageIterator& at, const TreeNode& model) {
    const QKLProtocolIDMap& names = static_cast<QKLBinaryIterator&>(at).binaryMessage()->internals()->idMap();
    TreeNode node(at.curName(), names.findIDC(at.curNamespaceID()).str());
    node.kind = model.kind;
    node.type = model.kind == Kind::Container ? at.curType() : "";
    if (const int read = access(at, node, false, 0)) node.kind = Kind::Text, node.text = "<read " + std::to_string(read) + ">";
    Iterator child(at.newIterator(false));
    for (int more = model.kind == Kind::Container ? child->firstChild() : -1; more == 0; more = child->nextSibling()) {
        const size_t i = node.children.size();
        node.children.push_back(readTree(*child, i < model.children.size() ? model.children[i] : TreeNode("<extra>")));
    }
    return node;
}

TEST(RoundTrip, EveryPathOfAGeneratedTreeReadsBackAsTheModel) {
    std::mt19937 random(1);
    for (int tree = 0; tree < 100; ++tree) {
        const TreeNode model = generated(random);
        SCOPED_TRACE(dump(model));
        auto_destroy<> byID(built(fromXml("<packet/>"), model, true)), byName(built(fromXml("<packet/>"), model, false));
        auto_destroy<> blank(fromXml("<packet/>")), viaCopy(built(blank->copy(false), model, true));
        const std::string bytes = bytesOf(*byID), text = textOf(*byName);
        auto_destroy<> loaded(QKLMsgFactory::createNew(bytes.data(), int(bytes.size()))), parsed(fromXml(text));
        ASSERT_NE(nullptr, loaded.get()) << "the library refused the bytes it wrote";
        const std::pair<const char*, QKLMessage*> paths[] = {{"by ID", byID.get()}, {"by name", byName.get()},
            {"written shallow copy", viaCopy.get()}, {"received bytes", loaded.get()}, {"XML text", parsed.get()}};
        for (const auto& [name, at] : paths) EXPECT_EQ(dump(model), dump(readTree(*Iterator(at->newIterator()), model))) << name;
        EXPECT_EQ(bytesOf(*auto_destroy<>(fromXml("<packet/>"))), bytesOf(*blank));  // the copy wrote its own document
        EXPECT_EQ(bytes, bytesOf(*loaded));
        EXPECT_EQ(text, textOf(*parsed));

        auto_destroy<> holder(fromXml("<packet/>"));
        Iterator at(holder->newIterator()), from(byName->newIterator());
        ASSERT_EQ(0, at->copyToChild(from.get()) + at->deserializeToChild(bytes.data(), int(bytes.size())) +
                         at->fromTextToChild(text.c_str()));
        TreeNode three("packet");
        three.kind = Kind::Container, three.children = {model, model, model};
        EXPECT_EQ(dump(three), dump(readTree(*Iterator(holder->newIterator()), three)));
    }
}

// Each sharer keeps its bytes until it writes and counts its sharers (either copy flag shares); a lone one is never copied.
TEST(RoundTrip, SharersKeepTheirBytesThroughCopiesHardcopiesWritesAndDestroysInAnyOrder) {
    struct Sharer { QKLMessage* message; std::string bytes; int group; };
    std::mt19937 random(11);
    std::vector<Sharer> pool{{built(fromXml("<packet/>"), generated(random), false), "", 0}};
    pool[0].bytes = bytesOf(*pool[0].message);
    for (int step = 1; step <= 500; ++step) {
        const size_t pick = random() % pool.size();
        const unsigned op = random() % 5;
        Sharer& sharer = pool[pick];
        const auto* const alone = sharer.message->multiReference() ? nullptr : static_cast<QKLBinary*>(sharer.message)->internals();
        const int result = op == 2 ? sharer.message->hardcopy()
                         : op == 3 ? Iterator(sharer.message->newIterator())->putValue(std::to_string(step), "origin") : 0;
        ASSERT_EQ(0, result) << "step " << step;
        EXPECT_TRUE(op != 2 || !alone || alone == static_cast<QKLBinary*>(sharer.message)->internals()) << "lone sharer copied";
        if (op == 3) sharer.bytes = bytesOf(*sharer.message);
        if (op == 2 || op == 3) sharer.group = step;  // a private document now
        if (op < 2) pool.push_back({sharer.message->copy(op == 0), sharer.bytes, sharer.group});
        if (op == 4 && pool.size() > 1) sharer.message->destroy(), pool.erase(pool.begin() + long(pick));
        for (const Sharer& each : pool) {
            const long sharers = std::count_if(pool.begin(), pool.end(), [&](const Sharer& s) { return s.group == each.group; });
            ASSERT_EQ(each.bytes, bytesOf(*each.message)) << "step " << step;
            ASSERT_EQ(sharers, each.message->shareCount()) << "step " << step;
            ASSERT_EQ(sharers > 1, each.message->multiReference()) << "step " << step;
        }
    }
    for (Sharer& each : pool) each.message->destroy();
}

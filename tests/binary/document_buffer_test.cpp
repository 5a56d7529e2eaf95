// The document buffer: path edits against a plain model of the tree, and the growth steps of the buffer.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <utility>

#include "binary/DocumentCheck.h"
#include "support/AssertCounter.h"

using namespace QKL;
using namespace QKL::binary;
using BinaryDoc::Tree;

namespace {

// Random inserts, content changes, erasures, map entries: the document stays well formed and equal to the model;
// the change counter moves exactly when a node still there moved, one was erased or the buffer grew.
TEST(DocumentBuffer, RandomEditsKeepTheDocumentEqualToItsModel) {
    QKLTest::AssertCounter quiet;  // a plain element holding a value refuses children with a report
    QKLBinaryInternals d;
    ASSERT_EQ(0, d.turnBlank());
    EXPECT_EQ("98 ba dc fe 01 00 00 02", BinaryDoc::hex(BinaryDoc::held(d)));
    BinaryPath p;
    std::vector<Tree> root;    // none or one
    std::vector<Tree*> model;  // the path in the model
    std::map<int, int> offsetOf;
    std::mt19937 rng(2202);
    for (int step = 0; step < 1500 && !HasFailure(); ++step) {
        std::string data(rng() % 30, '\0');
        for (char& c : data) c = char(rng() | 1);  // no zero bytes: stale ones would show
        const unsigned short type = std::array<unsigned short, 12>{0, 0, 50, 50, 1, 2, 3, 4, 5, 6, 51, 150}[rng() % 12];
        const bool terminate = rng() % 2, container = isContainer(type);
        const bool erase = !p.empty() && rng() % 10 == 0 && (p.depth() > 1 || rng() % 4 == 0);  // now and then the root
        if (type == 0 && rng() % 2) data.clear();
        const std::string stored = container ? "" : data + std::string(terminate || type == TYPE_BASE64, '\0');
        const int length = container ? 0 : int(data.size()), capacity = d.capacity(), tag = 1001 + step % 5;
        const unsigned int op = rng() % 10, counter = d.changeCounter();
        if (p.empty()) {  // above the root only a first root goes in
            ASSERT_EQ(root.empty() ? 0 : -1, d.insert(p, 1398, TYPE_CONTAINER, nullptr, 0, false));
            if (root.empty()) root.push_back({1398, TYPE_CONTAINER, 0, step, "", {}});
            if (p.empty()) p.push(1398, HEADER_SIZE);
            model = {&root[0]};
        } else if (erase) {
            ASSERT_EQ(0, d.erase(p));
            const Tree* gone = model.back();
            model.pop_back();
            if (model.empty()) root.clear();
            else model.back()->kids.erase(model.back()->kids.begin() + (gone - model.back()->kids.data()));
        } else if (op < 4) {
            Tree& parent = *model.back();
            const bool takes = isContainer(parent.type) || (parent.type == 0 && parent.payload.empty());
            ASSERT_EQ(takes ? 0 : -1, d.insert(p, tag, type, data.data(), length, terminate));
            if (takes && parent.type == 0) parent.type = TYPE_CONTAINER;
            if (takes) parent.kids.push_back({tag, type, 0, step, stored, {}}), model.push_back(&parent.kids.back());
            if (takes && !container && rng() % 2) p.pop(), model.pop_back();
        } else if (op < 6) {  // a container takes no payload, but may be emptied into a value
            Tree& node = *model.back();
            const bool refused = isContainer(node.type) && length > 0;
            ASSERT_EQ(refused ? -1 : 0, d.setContent(p, type, data.data(), length, terminate));
            if (!refused) node = Tree{node.tag, type, 0, node.id, stored, {}};
        } else if (op < 9 && !model.back()->kids.empty()) {
            const size_t i = rng() % model.back()->kids.size();
            unsigned int kid = p.current().offset + 16;
            for (size_t k = 0; k < i; ++k) kid += unsigned(Node(d.arena(), kid).size());
            p.push(model.back()->kids[i].tag, kid), model.push_back(&model.back()->kids[i]);
        } else {
            p.pop(), model.pop_back();
        }
        if (rng() % 40 == 0) d.add2map(unsigned(-100 - step), MAP_KIND_ELEMENT, "name", 4);
        ASSERT_TRUE(BinaryDoc::wellFormed(d)) << step;
        std::vector<int> order, offsets;
        ASSERT_EQ(root.empty() ? "" : BinaryDoc::describe(root[0], &order),
                  d.format().empty() ? "" : BinaryDoc::describe(BinaryDoc::read(d, HEADER_SIZE), &offsets)) << step;
        bool moved = false;
        for (size_t i = 0; i < order.size(); ++i)
            moved |= std::exchange(offsetOf.emplace(order[i], offsets[i]).first->second, offsets[i]) != offsets[i];
        EXPECT_EQ(moved || erase || d.capacity() != capacity, d.changeCounter() != counter) << step;
    }
}

// A request filling the buffer exactly still grows it; one as large as the buffer grows it in 4096-byte steps.
TEST(DocumentBuffer, GrowthSteps) {
    const struct { int request, capacity; } rows[] = {{0, 4096},    {-1, 4096},   {4087, 4096},  {4088, 8192},
                                                      {4095, 8192}, {4096, 8192}, {5000, 12288}, {20000, 24576}};
    for (const auto& row : rows) {
        QKLBinaryInternals d;
        ASSERT_EQ(0, d.turnBlank());  // 4096 bytes, 8 of them used
        const std::uint32_t counter = d.changeCounter();
        ASSERT_NE(nullptr, d.expand(row.request, true));
        EXPECT_EQ(row.capacity, d.capacity()) << row.request;
        EXPECT_EQ(nullptr, d.copy(BinaryDoc::held(d).data(), int(d.used()) + 1));  // a document of its exact length,
        EXPECT_NE(nullptr, d.copy(BinaryDoc::held(d).data(), int(d.used())));      // adopted: held offsets are stale
        EXPECT_EQ(row.capacity != 4096 ? 2u : 1u, d.changeCounter() - counter);  // even with the same bytes
    }
}

}  // namespace

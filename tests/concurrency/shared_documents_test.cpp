// Documents on several threads: shallow copies of one document read, copied, written and dropped at
// once; separate documents built at once (their ID maps share one node pool); messages from the factory.
#include <atomic>
#include <thread>

#include "support/TreeModel.h"

using namespace QKL;
using namespace QKLTest;

namespace {

const int FIELDS = 6, THREADS = 4;
using Values = std::vector<std::string>;  // of the fields, in order

std::string field(int i) { return "x_field" + std::to_string(i); }  // outside the vocabularies
const Values FIRST = {"value0", "value1", "value2", "value3", "value4", "value5"};

// The shared document: fields with per-document IDs, and a container with a namespace and a complex type
// of its own, so that reads by name and the text form resolve per-document names.
QKLMessage* original(const Values& values = FIRST) {
    QKLMessage* message = QKLMsgFactory::createNew();
    EXPECT_EQ(0, message->create("packet"));
    Iterator at(message->newIterator());
    EXPECT_EQ(0, at->putValue("agentA", "origin"));
    for (int i = 0; i < FIELDS; ++i) EXPECT_EQ(0, at->putValue(values[size_t(i)], field(i)));
    EXPECT_FALSE(at->newChild("x_list") || at->setNamespace("urn:test:shared") || at->putValue(7, "x_count") ||
                 at->setComplexType("urn:test:types", "List") || at->seekUp());
    return message;
}

int writeValue(QKLMessageIterator& at, TreeNode& node) {  // by ID 0: the current element's value
    switch (node.kind) {
        case Kind::Text: return at.putValue(node.text, 0);
        case Kind::Base64: return at.putValueBase64(node.text, 0);
        case Kind::Double: return at.putValueDouble(node.real, 0);
        case Kind::Int: return at.putValue(node.integer, 0);
        case Kind::LongLong: return at.putValueLongLong(node.wide, 0);
        case Kind::Time: return at.putValueTime(node.time, 0);
        case Kind::TimeZone: return at.putValueTimeZone(node.time, node.zone, 0);
        default: return 0;
    }
}

void build(QKLMessageIterator& at, TreeNode& parent) {  // by name: unknown names take per-document IDs
    for (TreeNode& node : parent.children) {
        const size_t colon = node.type.rfind(':');
        ASSERT_EQ(0, at.newChild(node.name));
        build(at, node);
        ASSERT_EQ(0, node.type.empty() ? 0 : at.setComplexType(node.type.substr(0, colon), node.type.substr(colon + 1)));
        ASSERT_FALSE((!node.ns.empty() && at.setNamespace(node.ns)) || writeValue(at, node) || at.seekUp()) << dump(node);
    }
}

QKLMessage* generatedDocument(unsigned seed) {
    std::mt19937 random(seed);
    TreeNode model = generated(random);
    QKLMessage* message = QKLMsgFactory::createNew();
    EXPECT_EQ(0, message->create("packet"));
    build(*Iterator(message->newIterator()), model);
    return message;
}

template <class Work>
void onThreads(const Work& work) {
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) threads.emplace_back(work, t);
    for (std::thread& thread : threads) thread.join();
}

// One worker's sharer, with the values its writes (or those of the sharer it was copied from) left.
struct Sharer {
    QKLMessage* message;
    Values values;
};

}  // namespace

TEST(SharedDocument, SharersReadCopyWriteAndDropOnSeveralThreadsAndEachKeepsItsOwnBytes) {
    auto_destroy<> shared(original());
    const std::string bytes = bytesOf(*shared), text = textOf(*shared);
    const QKLProtocolIDMap& names = static_cast<QKLBinary*>(shared.get())->internals()->idMap();
    int ids[FIELDS];
    for (int i = 0; i < FIELDS; ++i) ids[i] = names.findStrC(Internal::CharArray(field(i).c_str()), QKLDefaultMap::findElem);
    std::vector<QKLMessage*> handed;
    for (int t = 0; t < THREADS; ++t) handed.push_back(shared->copy(false));
    const unsigned long asserts = assertReports();
    onThreads([&](int t) {
        std::mt19937 random(unsigned(t) + 1);
        std::vector<Sharer> mine{{handed[size_t(t)], FIRST}};
        const auto expected = [&](const Sharer& s, bool asText) {  // what the sharer's own writes imply
            if (s.values == FIRST) return asText ? text : bytes;
            auto_destroy<> replayed(original(s.values));
            return asText ? textOf(*replayed) : bytesOf(*replayed);
        };
        for (int step = 0; step < 6000; ++step) {
            const size_t pick = random() % mine.size();
            Sharer& s = mine[pick];
            const size_t i = random() % FIELDS;
            std::string value, walked, model;
            Iterator at(s.message->newIterator());
            switch (random() % 9) {
                case 0: ASSERT_FALSE(at->getValue(value, ids[i]) || s.values[i] != value) << value; break;
                case 1: ASSERT_FALSE(at->getValue(value, field(int(i))) || s.values[i] != value) << value; break;
                case 2:  // the root's children in order, each with its value
                    for (int more = at->firstChild(); more == 0; more = at->nextSibling())
                        walked += at->curName() + "=" + (at->getValue(value, 0) == 0 ? value : "") + ";";
                    model = "origin=agentA;";
                    for (int f = 0; f < FIELDS; ++f) model += field(f) + "=" + s.values[size_t(f)] + ";";
                    ASSERT_EQ(model + "x_list=;", walked);
                    break;
                case 3: ASSERT_EQ(expected(s, true), textOf(*s.message)); break;
                case 4: ASSERT_EQ(expected(s, false), bytesOf(*s.message)); break;
                case 5: mine.push_back({s.message->copy(false), s.values}); break;
                case 6:  // a write makes the sharer's document private first
                    value = "t" + std::to_string(t) + "s" + std::to_string(step);
                    ASSERT_EQ(0, at->putValue(value, field(int(i))));
                    s.values[i] = value;
                    break;
                case 7: ASSERT_EQ(0, s.message->hardcopy()); break;
                default:
                    if (mine.size() > 1) at.reset(), s.message->destroy(), mine.erase(mine.begin() + long(pick));
            }
        }
        for (Sharer& s : mine) {
            EXPECT_EQ(expected(s, false), bytesOf(*s.message));
            s.message->destroy();
        }
    });
    EXPECT_EQ(asserts, assertReports());
    EXPECT_EQ(bytes, bytesOf(*shared));
    EXPECT_EQ(text, textOf(*shared));
    EXPECT_EQ(1, shared->shareCount());
}

TEST(SeparateDocuments, BuiltAndDroppedOnSeveralThreadsAtOnceMatchTheSameBuiltOnOne) {
    const unsigned DOCUMENTS = 16;
    std::vector<std::string> built, texts, parsed;  // the bytes built by name, their text, the bytes parsed from it
    for (unsigned d = 0; d < DOCUMENTS; ++d) {
        auto_destroy<> document(generatedDocument(d));
        built.push_back(bytesOf(*document));
        texts.push_back(textOf(*document));
        parsed.push_back(bytesOf(*auto_destroy<>(fromXml(texts.back()))));
    }
    onThreads([&](int t) {
        std::mt19937 random(unsigned(t) + 100);
        std::vector<std::pair<unsigned, QKLMessage*>> alive;  // (2 x document, + 1 if parsed from text), a few at once
        for (int step = 0; step < 6000; ++step) {
            const unsigned d = unsigned(random() % (2 * DOCUMENTS));
            if (alive.size() < 5 && random() % 2 == 0) {
                alive.emplace_back(d, d % 2 ? fromXml(texts[d / 2]) : generatedDocument(d / 2));
            } else if (!alive.empty()) {
                const size_t pick = random() % alive.size();
                const auto [document, message] = alive[pick];
                EXPECT_EQ((document % 2 ? parsed : built)[document / 2], bytesOf(*message)) << "document " << document;
                message->destroy();
                alive.erase(alive.begin() + long(pick));
            }
        }
        for (auto& each : alive) each.second->destroy();
    });
}

TEST(Factory, MessagesMadeOnSeveralThreadsAfterInitialize) {
    QKLMsgFactory::createNew()->destroy();  // the first message registers the binary protocol
    ASSERT_TRUE(QKLMessage::initialize());
    auto_destroy<> sample(original());
    const std::string bytes = bytesOf(*sample), text = textOf(*sample);
    onThreads([&](int) {
        for (int round = 0; round < 1000; ++round) {
            auto_destroy<> made(original());  // createNew() on this thread
            auto_destroy<> received(QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
            auto_destroy<> parsed(QKLMsgFactory::createNew(text.c_str(), int(text.size()) + 1));
            const auto kind = getMsgVocabulary().find(QKLMsgFactory::kindOf(bytes.data()));
            ASSERT_TRUE(received && parsed && kind != getMsgVocabulary().end());
            auto_destroy<> byKind(kind->second->newMessage(bytes.data(), int(bytes.size())));
            ASSERT_EQ("QKLBinary", kind->first);
            std::string value;  // a received document's names are read on the thread that received it
            for (int i = 0; i < FIELDS; ++i) {
                ASSERT_EQ(0, Iterator(received->newIterator())->getValue(value, field(i)));
                ASSERT_EQ("value" + std::to_string(i), value);
            }
            ASSERT_EQ(bytes, bytesOf(*made));
            ASSERT_EQ(bytes, bytesOf(*received));
            ASSERT_EQ(text, textOf(*parsed));
            ASSERT_EQ(text, textOf(*byKind));
        }
    });
}

// ---- a received document handed to six workers, one sharer each, all starting at once ----

namespace {

const int WORKERS = 6, ROUNDS = 60;

template <class Work>
void atOnce(const Work& work) {  // the workers start together, so that their first steps overlap
    std::atomic<int> arrived{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < WORKERS; ++t)
        threads.emplace_back([&, t] {
            for (++arrived; arrived < WORKERS;) std::this_thread::yield();
            work(t);
        });
    for (std::thread& thread : threads) thread.join();
}

// Every field, the list's count and the origin, read by name: "" when all hold `values`.
std::string misread(const QKLMessage& message, const Values& values) {
    Iterator at(const_cast<QKLMessage&>(message).newIterator());
    std::string value, wrong;
    int count = 0;
    for (int i = 0; i < FIELDS; ++i)
        if (at->getValue(value, field(i)) != 0 || value != values[size_t(i)]) wrong += field(i) + "=" + value + " ";
    if (at->getValue(value, "origin") != 0 || value != "agentA") wrong += "origin=" + value + " ";
    if (at->seek("x_list") != 0 || at->getValue(count, "x_count") != 0 || count != 7) wrong += "x_count ";
    return wrong;
}

// A received copy of `bytes` and one sharer of it per worker, no name looked up yet.
std::vector<QKLMessage*> receivedSharers(const std::string& bytes) {
    QKLMessage* received = QKLMsgFactory::createNew(bytes.data(), int(bytes.size()));
    std::vector<QKLMessage*> sharers{received};
    while (sharers.size() < size_t(WORKERS)) sharers.push_back(received->copy(false));
    return sharers;
}

Values written(int worker, int step) {  // what a worker writes over the fields
    Values values = FIRST;
    values[size_t((worker + step) % FIELDS)] = "w" + std::to_string(worker) + "." + std::to_string(step);
    return values;
}

void write(QKLMessage& message, const Values& values) {
    Iterator at(message.newIterator());
    for (int i = 0; i < FIELDS; ++i) ASSERT_EQ(0, at->putValue(values[size_t(i)], field(i)));
    // The document's own type name: an un-shared copy finds it as the document does, and adds no entry.
    ASSERT_FALSE(at->seek("x_list") || at->setComplexType("urn:test:types", "List"));
}

}  // namespace

TEST(ReceivedDocument, SixSharersLookUpByNameAtOnceBeforeAnyOtherLookUp) {
    auto_destroy<> sample(original());
    const std::string bytes = bytesOf(*sample), text = textOf(*sample);
    for (int round = 0; round < ROUNDS; ++round) {
        const std::vector<QKLMessage*> sharers = receivedSharers(bytes);
        atOnce([&](int t) {
            auto_destroy<> mine(sharers[size_t(t)]);
            EXPECT_EQ("", misread(*mine, FIRST)) << "worker " << t;
            EXPECT_EQ(t % 2 ? text : bytes, t % 2 ? textOf(*mine) : bytesOf(*mine)) << "worker " << t;
        });
    }
}

TEST(ReceivedDocument, OneWriterUnsharesWhileFiveReadSerializeAndDropTheirs) {
    auto_destroy<> sample(original());
    const std::string bytes = bytesOf(*sample);
    std::vector<std::string> expected;  // the writer's bytes after each step, written on one thread
    {
        auto_destroy<> alone(QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
        for (int step = 0; step < 8; ++step) write(*alone, written(0, step)), expected.push_back(bytesOf(*alone));
    }
    for (int round = 0; round < ROUNDS; ++round) {
        const std::vector<QKLMessage*> sharers = receivedSharers(bytes);
        auto_destroy<> kept(sharers[0]->copy(false));  // outlives the workers: the source's bytes are checked after
        atOnce([&](int t) {
            auto_destroy<> mine(sharers[size_t(t)]);
            for (int step = 0; step < 8; ++step) {
                if (t == 0) {
                    write(*mine, written(0, step));
                    ASSERT_EQ(expected[size_t(step)], bytesOf(*mine)) << "step " << step;
                    ASSERT_EQ("", misread(*mine, written(0, step))) << "step " << step;
                } else {
                    ASSERT_EQ("", misread(*mine, FIRST)) << "worker " << t;
                    ASSERT_EQ(bytes, bytesOf(*mine)) << "worker " << t;
                    auto_destroy<> passing(mine->copy(false));  // made and dropped while the writer un-shares
                }
            }
        });
        ASSERT_EQ(bytes, bytesOf(*kept));
        ASSERT_EQ(1, kept->shareCount());
    }
}

TEST(ReceivedDocument, EveryWorkerWritesThroughItsOwnSharerAndHardCopies) {
    auto_destroy<> sample(original());
    const std::string bytes = bytesOf(*sample);
    for (int round = 0; round < ROUNDS; ++round) {
        const std::vector<QKLMessage*> sharers = receivedSharers(bytes);
        auto_destroy<> kept(sharers[0]->copy(false));
        atOnce([&](int t) {
            auto_destroy<> mine(sharers[size_t(t)]);
            auto_destroy<> second(mine->copy(false));
            ASSERT_EQ(0, second->hardcopy());  // a private copy, taken while the others copy and write
            write(*mine, written(t, round));
            ASSERT_EQ("", misread(*mine, written(t, round))) << "worker " << t;
            ASSERT_EQ("", misread(*second, FIRST)) << "worker " << t;
            ASSERT_EQ(1, second->shareCount());
        });
        ASSERT_EQ(bytes, bytesOf(*kept));
        ASSERT_EQ("", misread(*kept, FIRST));
    }
}

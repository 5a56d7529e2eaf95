// Part 3.3: Names, namespaces and complex types, on real QKLBinary documents
// (QKLMsgFactory::createNew(), create("packet"), newIterator()). The "Edge
// cases worth testing" bullets come first (Part33EdgeCases, one TEST each),
// then element creation, namespaces, the saved-namespace stack, complex types,
// the names of the current element, and the subtree operations, including
// the XML text forms (toTextFromChild, fromTextToChild; Parts 5.1 and 5.2).
#include "support/AssertCounter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qkl/binary/BinaryPath.h"
#include "qkl/binary/Format.h"
#include "qkl/binary/QKLBinary.h"
#include "qkl/binary/QKLBinaryInternals.h"
#include "qkl/binary/QKLBinaryIterator.h"
#include "qkl/common/QKLAssert.h"
#include "qkl/message/QKLMessage.h"
#include "qkl/message/QKLMessageIterator.h"
#include "qkl/message/QKLMsgFactory.h"
#include "qkl/vocabulary/QKLDefaultMap.h"
#include "qkl/vocabulary/QKLProtocolIDMap.h"

using QKL::BinaryPath;
using QKL::QKLBinary;
using QKL::QKLBinaryInternals;
using QKL::QKLBinaryIterator;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using QKL::QKLProtocolIDMap;
using QKL::Internal::CharArray;
using Names = std::vector<std::string>;
using namespace std::string_literals;

namespace {

// Element vocabulary (Part 4.1): 1001 "alerts", 1002 "veid", 1003 "alert", 1398 "packet".
const int ALERTS = 1001, VEID = 1002;
// Type vocabulary: 101 "alertmType", 150 "eid_listType".
const int ALERTM_TYPE = 101, EID_LIST_TYPE = 150;

std::string nsName(int id) {
    const CharArray& name = QKL::getStringByNSIdDefault(id);
    return std::string(name.ptr(), name.length());
}
// Namespace vocabulary: 201 and 202, full URIs under the implementer's base.
const std::string NS201 = nsName(201);
const std::string NS202 = nsName(202);

// A message holding a blank "packet" document, with one counted iterator on its root.
struct Doc {
    QKL::auto_destroy<> message{QKL::QKLMsgFactory::createNew()};
    std::unique_ptr<QKLMessageIterator> it;

    Doc() {
        EXPECT_TRUE(message);
        EXPECT_EQ(0, message->create("packet"));
        it.reset(message->newIterator());
    }
    QKLBinary& binary() const { return static_cast<QKLBinary&>(*message); }
    QKLBinaryInternals& internals() const { return *binary().internals(); }
    QKLProtocolIDMap& idMap() const { return internals().idMap(); }
    QKLBinaryIterator& bit() const { return static_cast<QKLBinaryIterator&>(*it); }
    // The node the iterator stands on.
    QKL::binary::Node node() const { return QKL::binary::Node(internals().arena(), bit().path().current().offset); }
    unsigned short type() const { return node().type(); }
    std::string bytes() const {
        char* buf = nullptr;
        int len = 0;
        EXPECT_EQ(0, message->serialize(&buf, &len, nullptr, 40500));
        std::string out(buf ? buf : "", buf ? std::size_t(len) : 0);
        std::free(buf);
        return out;
    }
    // A plain container (type 50, ns 0) under the current element, named
    // `name`, holding one empty "alert"; the iterator ends on it.
    void plainContainer(const std::string& name) {
        ASSERT_EQ(0, it->newChild(name));
        ASSERT_EQ(0, it->newChild("alert"));
        ASSERT_EQ(0, it->seekUp());
        ASSERT_EQ(QKL::binary::TYPE_CONTAINER, type());
        ASSERT_EQ(0, node().ns());
    }
};

Names childNames(const QKLMessageIterator& it) {
    Names names;
    std::unique_ptr<QKLMessageIterator> walker(it.newIterator(false));
    if (walker->firstChild() != 0) return names;
    do names.push_back(walker->curName());
    while (walker->nextSibling() == 0);
    return names;
}

// The tree part of a serialized document: the root node with its subtree, without header and map area.
std::string treeOf(const std::string& document) {
    if (document.size() < 24) return std::string();
    std::uint32_t rootData = 0;
    std::memcpy(&rootData, document.data() + 16, sizeof rootData);  // the root's data size (Part 2.1)
    return document.substr(8, 16 + std::size_t(rootData));
}

std::string valueAt(const QKLMessageIterator& it, const std::string& path) {
    std::string value = "<none>";
    EXPECT_EQ(0, it.getValue(value, path)) << path;
    return value;
}

// Tests silence QKL_ASSERT (stale or empty paths trip it by design).
// QKL_ASSERT is silenced in every test.
class Part33 : public ::testing::Test {
protected:
    QKLTest::AssertCounter m_asserts;
};
class Part33EdgeCases : public Part33 {};
class Part33NewChild : public Part33 {};
class Part33Namespace : public Part33 {};
class Part33SaveNamespace : public Part33 {};
class Part33ComplexType : public Part33 {};
class Part33CurType : public Part33 {};
class Part33CurName : public Part33 {};
class Part33Subtree : public Part33 {};
class Part33Stale : public Part33 {};

// ================================================================================================
// Edge cases worth testing
// ================================================================================================

TEST_F(Part33EdgeCases, NewChildWithANameInNoVocabularyCreatesTheElementAndSeekFromItsParentFindsIt) {
    Doc d;
    EXPECT_EQ(-1, d.it->seek("x_in_no_vocabulary"));
    EXPECT_EQ(0, d.it->newChild("x_in_no_vocabulary"));
    EXPECT_EQ("x_in_no_vocabulary", d.it->curName());
    EXPECT_EQ(QKLProtocolIDMap::BEGIN_ID, d.bit().curID());  // the first per-document ID, -2
    ASSERT_EQ(0, d.it->seekUp());
    EXPECT_EQ(0, d.it->seek("x_in_no_vocabulary"));
    EXPECT_EQ("x_in_no_vocabulary", d.it->curName());
    // A fresh iterator finds it too, by path.
    std::unique_ptr<QKLMessageIterator> other(d.message->newIterator());
    EXPECT_EQ(0, other->seek("/x_in_no_vocabulary"));
    EXPECT_EQ(-2, static_cast<QKLBinaryIterator&>(*other).curID());
}

TEST_F(Part33EdgeCases, SetNamespaceEmptyClearsTheNamespaceOfTheCurrentElement) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->setNamespace(NS201));
    ASSERT_EQ(201, d.it->curNamespaceID());
    EXPECT_EQ(0, d.it->setNamespace(""s));
    EXPECT_EQ(0, d.it->curNamespaceID());
    EXPECT_EQ(0, d.node().ns());
    // Per-document namespaces too.
    ASSERT_EQ(0, d.it->setNamespace("urn:private"s));
    ASSERT_NE(0, d.it->curNamespaceID());
    EXPECT_EQ(0, d.it->setNamespace(""s));
    EXPECT_EQ(0, d.it->curNamespaceID());
}

TEST_F(Part33EdgeCases, SaveNamespace0OnAnEmptyStackDoesNothing) {
    Doc d;
    ASSERT_TRUE(d.bit().path().namespaces.empty());
    const std::string before = d.bytes();
    d.it->saveNamespace(0);
    d.it->saveNamespace(""s);
    EXPECT_TRUE(d.bit().path().namespaces.empty());
    EXPECT_EQ(before, d.bytes());
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(0, d.it->curNamespaceID());
}

TEST_F(Part33EdgeCases, SetComplexTypeEmptyEmptyReturns0AndLeavesTheNodeUnchanged) {
    Doc d;
    d.plainContainer("alerts");
    const std::string before = d.bytes();
    const int counter = d.idMap().nextID();
    EXPECT_EQ(0, d.it->setComplexType(""s, ""s));
    EXPECT_EQ(before, d.bytes());
    EXPECT_EQ(counter, d.idMap().nextID());
    // An empty type with a namespace changes nothing either, and assigns no namespace ID.
    EXPECT_EQ(0, d.it->setComplexType("urn:unused"s, ""s));
    EXPECT_EQ(before, d.bytes());
    EXPECT_EQ(counter, d.idMap().nextID());
    EXPECT_EQ("", d.it->curType());
}

TEST_F(Part33EdgeCases, SetComplexTypeEmptyTSetsTypeTWithoutAPrefix) {
    Doc d;
    d.plainContainer("alerts");
    EXPECT_EQ(0, d.it->setComplexType(""s, "T"s));
    EXPECT_EQ("T", d.it->curType());
    // "T" is in no vocabulary: a per-document type ID, the low 16 bits of the counter.
    EXPECT_EQ(65534, d.type());
    EXPECT_EQ(0, d.node().ns());
    // Still a container with its child.
    EXPECT_EQ((Names{"alert"}), childNames(*d.it));
}

TEST_F(Part33EdgeCases, CurTypeOfAnElementWhoseTypeHasNoNameReturnsEmpty) {
    Doc d;
    EXPECT_EQ("", d.it->curType());  // the root: a plain container, type 50
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ("", d.it->curType());  // type 0
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->putValue("text"s, "veid"));
    ASSERT_EQ(0, d.it->seek("veid"));
    EXPECT_EQ("", d.it->curType());  // type 2
    ASSERT_EQ(0, d.it->seekUp());
    // A complex type code that no map names (written all the same by the internals, Part 2.2).
    d.plainContainer("alert");
    BinaryPath path = d.bit().path();
    EXPECT_EQ(-1, d.internals().setComplexType(path, 9000));
    ASSERT_EQ(9000, d.type());
    EXPECT_EQ("", d.it->curType());
    ASSERT_EQ(0, d.it->setNamespace(201));
    EXPECT_EQ("", d.it->curType());  // the namespace has a name, the type has none: still empty
}

// ================================================================================================
// newChild(name)
// ================================================================================================

TEST_F(Part33NewChild, AVocabularyNameTakesItsVocabularyIdAndConsumesNoCounterValue) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(ALERTS, d.bit().curID());
    EXPECT_EQ(QKLProtocolIDMap::BEGIN_ID, d.idMap().nextID());
    ASSERT_EQ(0, d.it->newChild("first_unknown"));
    EXPECT_EQ(-2, d.bit().curID());
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("second_unknown"));
    EXPECT_EQ(-3, d.bit().curID());
    ASSERT_EQ(0, d.it->seekUp());
    // The same name again: the same ID, a second element.
    ASSERT_EQ(0, d.it->newChild("first_unknown"));
    EXPECT_EQ(-2, d.bit().curID());
    ASSERT_EQ(0, d.it->seekUp());
    EXPECT_EQ((Names{"first_unknown", "second_unknown", "first_unknown"}), childNames(*d.it));
    EXPECT_EQ(-4, d.idMap().nextID());
}

TEST_F(Part33NewChild, AppendsAsTheLastChildAndMovesOntoIt) {
    Doc d;
    d.plainContainer("alerts");
    ASSERT_EQ(0, d.it->newChild("veid"));
    EXPECT_EQ("veid", d.it->curName());
    EXPECT_EQ(3u, d.bit().path().depth());
    ASSERT_EQ(0, d.it->seekUp());
    EXPECT_EQ((Names{"alert", "veid"}), childNames(*d.it));
}

TEST_F(Part33NewChild, UnknownNamesTravelInTheDocumentsMapArea) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("x_private"));
    ASSERT_EQ(0, d.it->putValue("v"s, "y_private"));
    const std::string bytes = d.bytes();
    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    ASSERT_TRUE(received);
    std::unique_ptr<QKLMessageIterator> it(received->newIterator());
    EXPECT_EQ(0, it->seek("x_private/y_private"));
    EXPECT_EQ("y_private", it->curName());
    EXPECT_EQ("v", valueAt(*it, ""));
}

TEST_F(Part33NewChild, UnderATypedValueFails) {
    Doc d;
    ASSERT_EQ(0, d.it->putValue(5, "veid"));
    ASSERT_EQ(0, d.it->seek("veid"));
    const std::string before = d.bytes();
    EXPECT_EQ(-1, d.it->newChild("alert"));
    EXPECT_EQ(-1, d.it->newChild("not_in_any_vocabulary"));
    EXPECT_EQ("veid", d.it->curName());
    // The tree is unchanged; the names were looked up (findStr) before the refusal,
    // so the map area now records them (Part 4.2: vocabulary names are recorded too).
    EXPECT_EQ(treeOf(before), treeOf(d.bytes()));
    EXPECT_GT(d.bytes().size(), before.size());
    EXPECT_EQ(-2, d.idMap().findStrC(CharArray("not_in_any_vocabulary"), &QKL::QKLDefaultMap::findElem));
}

// ================================================================================================
// setNamespace, curNamespaceID
// ================================================================================================

TEST_F(Part33Namespace, AVocabularyNamespaceTakesItsVocabularyId) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(0, d.it->setNamespace(NS201));
    EXPECT_EQ(201, d.it->curNamespaceID());
    EXPECT_EQ(201, d.node().ns());
    EXPECT_EQ(0, d.it->setNamespace(nsName(311)));
    EXPECT_EQ(311, d.it->curNamespaceID());
    EXPECT_EQ(QKLProtocolIDMap::BEGIN_ID, d.idMap().nextID());
}

TEST_F(Part33Namespace, AnUnknownNamespaceGetsTheLow16BitsOfTheCounter) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("x_private"));  // the counter's -2 goes to an element
    EXPECT_EQ(0, d.it->setNamespace("urn:first"s));
    EXPECT_EQ(65533, d.it->curNamespaceID());  // -3 cut to 16 bits
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(0, d.it->setNamespace("urn:second"s));
    EXPECT_EQ(65532, d.it->curNamespaceID());
    EXPECT_EQ(0, d.it->setNamespace("urn:first"s));  // known now: the same ID, no counter value
    EXPECT_EQ(65533, d.it->curNamespaceID());
    EXPECT_EQ(-5, d.idMap().nextID());
    EXPECT_EQ("urn:first", std::string(d.idMap().findIDC(65533).ptr(), d.idMap().findIDC(65533).length()));
}

TEST_F(Part33Namespace, AFreshDocumentsFirstNamespaceIs65534) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(0, d.it->setNamespace("urn:only"s));
    EXPECT_EQ(65534, d.it->curNamespaceID());
}

TEST_F(Part33Namespace, AnElementVocabularyNameIsTakenAsANamespaceWithItsElementId) {
    // findStr tries the element vocabulary before the namespace vocabulary, whatever the kind (Part 4.2).
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(0, d.it->setNamespace("veid"s));
    EXPECT_EQ(VEID, d.it->curNamespaceID());
}

TEST_F(Part33Namespace, ById) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(0, d.it->setNamespace(202));
    EXPECT_EQ(202, d.it->curNamespaceID());
    EXPECT_EQ(0, d.it->setNamespace(0));
    EXPECT_EQ(0, d.it->curNamespaceID());
    // An ID the map cannot name: -1, the field written all the same (Part 2.2).
    EXPECT_EQ(-1, d.it->setNamespace(5000));
    EXPECT_EQ(5000, d.it->curNamespaceID());
    // A per-document namespace set by name elsewhere can be set by ID.
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("veid"));
    ASSERT_EQ(0, d.it->setNamespace("urn:p"s));
    const int id = d.it->curNamespaceID();
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->seek("alerts"));
    EXPECT_EQ(0, d.it->setNamespace(id));
    EXPECT_EQ(id, d.it->curNamespaceID());
}

TEST_F(Part33Namespace, SetsOnlyTheCurrentNodeAndIsNotInherited) {
    Doc d;
    d.plainContainer("alerts");
    ASSERT_EQ(0, d.it->setNamespace(NS201));
    ASSERT_EQ(0, d.it->seek("alert"));
    EXPECT_EQ(0, d.it->curNamespaceID());
    ASSERT_EQ(0, d.it->newChild("veid"));
    EXPECT_EQ(0, d.it->curNamespaceID());
    ASSERT_EQ(0, d.it->seekRoot());
    EXPECT_EQ(0, d.it->curNamespaceID());
}

TEST_F(Part33Namespace, TheNamespaceTravelsWithTheDocument) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->setNamespace("urn:travels"s));
    const int id = d.it->curNamespaceID();
    const std::string bytes = d.bytes();
    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    ASSERT_TRUE(received);
    std::unique_ptr<QKLMessageIterator> it(received->newIterator());
    ASSERT_EQ(0, it->seek("alerts"));
    EXPECT_EQ(id, it->curNamespaceID());
    const QKLProtocolIDMap& map = static_cast<QKLBinary&>(*received).internals()->idMap();
    EXPECT_EQ("urn:travels", std::string(map.findIDC(id).ptr(), map.findIDC(id).length()));
}

TEST_F(Part33Namespace, CurNamespaceIdWithoutADocumentIsMinus1) {
    QKL::auto_destroy<> empty(QKL::QKLMsgFactory::createNew());  // no create(): no root
    std::unique_ptr<QKLMessageIterator> it(empty->newIterator());
    EXPECT_EQ(-1, it->curNamespaceID());
    EXPECT_EQ(-1, it->setNamespace(201));
}

// ================================================================================================
// saveNamespace: the stack kept with the path
// ================================================================================================

TEST_F(Part33SaveNamespace, NewChildrenTakeTheTopOfTheStack) {
    Doc d;
    d.it->saveNamespace(201);
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(201, d.it->curNamespaceID());
    d.it->saveNamespace(202);
    ASSERT_EQ(0, d.it->newChild("veid"));
    EXPECT_EQ(202, d.it->curNamespaceID());
    ASSERT_EQ(0, d.it->seekUp());
    d.it->saveNamespace(0);  // pops 202
    ASSERT_EQ(0, d.it->newChild("alert"));
    EXPECT_EQ(201, d.it->curNamespaceID());
    ASSERT_EQ(0, d.it->seekUp());
    d.it->saveNamespace(""s);  // pops 201
    EXPECT_TRUE(d.bit().path().namespaces.empty());
    ASSERT_EQ(0, d.it->newChild("time"));
    EXPECT_EQ(0, d.it->curNamespaceID());
    // Existing elements keep theirs.
    ASSERT_EQ(0, d.it->seek("/alerts"));
    EXPECT_EQ(201, d.it->curNamespaceID());
    ASSERT_EQ(0, d.it->seek("veid"));
    EXPECT_EQ(202, d.it->curNamespaceID());
}

TEST_F(Part33SaveNamespace, ChildrenMadeByValueWritesTakeItToo) {
    Doc d;
    d.it->saveNamespace(NS202);
    EXPECT_EQ((std::vector<int>{202}), d.bit().path().namespaces);
    ASSERT_EQ(0, d.it->putValue("v"s, "veid"));
    ASSERT_EQ(0, d.it->seek("veid"));
    EXPECT_EQ(202, d.it->curNamespaceID());
}

TEST_F(Part33SaveNamespace, ByNameAnUnknownNamespaceIsAssignedAndPushed) {
    Doc d;
    d.it->saveNamespace("urn:saved"s);
    ASSERT_EQ(1u, d.bit().path().namespaces.size());
    EXPECT_EQ(65534, d.bit().path().namespaces.back());
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ(65534, d.it->curNamespaceID());
    d.it->saveNamespace("urn:saved"s);  // pushed again, same ID
    EXPECT_EQ((std::vector<int>{65534, 65534}), d.bit().path().namespaces);
    d.it->saveNamespace(""s);
    d.it->saveNamespace(""s);
    d.it->saveNamespace(""s);  // one pop too many: nothing
    EXPECT_TRUE(d.bit().path().namespaces.empty());
}

TEST_F(Part33SaveNamespace, TheStackIsNotTheCurrentNodesNamespace) {
    Doc d;
    const std::string before = d.bytes();
    d.it->saveNamespace(201);
    EXPECT_EQ(0, d.it->curNamespaceID());
    EXPECT_EQ(before, d.bytes());
}

// ================================================================================================
// Complex types
// ================================================================================================

TEST_F(Part33ComplexType, WithAPrefixCurTypeIsNsColonType) {
    Doc d;
    d.plainContainer("alerts");
    EXPECT_EQ(0, d.it->setComplexType("urn:types"s, "T"s));
    EXPECT_EQ("urn:types:T", d.it->curType());
    // The namespace got an ID (65534), then the full name a type ID (65533);
    // the node's own namespace is not touched.
    EXPECT_EQ(65533, d.type());
    EXPECT_EQ(0, d.node().ns());
    EXPECT_EQ("urn:types", std::string(d.idMap().findIDC(65534).ptr(), d.idMap().findIDC(65534).length()));
    EXPECT_EQ(-4, d.idMap().nextID());
}

TEST_F(Part33ComplexType, WithAVocabularyNamespaceTheTypeIsStillAPerDocumentOne) {
    Doc d;
    d.plainContainer("alerts");
    EXPECT_EQ(0, d.it->setComplexType(NS201, "alertmType"s));
    EXPECT_EQ(NS201 + ":alertmType", d.it->curType());
    EXPECT_EQ(65534, d.type());  // the vocabulary namespace consumed no counter value
}

TEST_F(Part33ComplexType, TheOneArgumentFormTakesTheWholeTextAsTheTypeName) {
    Doc d;
    d.plainContainer("alerts");
    EXPECT_EQ(0, d.bit().setComplexType("urn:types:T"s));
    EXPECT_EQ("urn:types:T", d.it->curType());
    EXPECT_EQ(65534, d.type());  // no namespace was assigned
    EXPECT_EQ(-3, d.idMap().nextID());
}

TEST_F(Part33ComplexType, ByIdsBuildsTheFullNameAndSetsItByName) {
    Doc d;
    d.plainContainer("alerts");
    EXPECT_EQ(0, d.it->setComplexType(201, ALERTM_TYPE));
    EXPECT_EQ(NS201 + ":alertmType", d.it->curType());
    EXPECT_EQ(65534, d.type());
    ASSERT_EQ(0, d.it->seekUp());
    d.plainContainer("veid");
    // Without a namespace: the type vocabulary name, taken through findStr as a per-document type.
    EXPECT_EQ(0, d.it->setComplexType(0, ALERTM_TYPE));
    EXPECT_EQ("alertmType", d.it->curType());
    EXPECT_EQ(65533, d.type());
    ASSERT_EQ(0, d.it->seekUp());
    d.plainContainer("alert");
    // A per-document type by its ID.
    EXPECT_EQ(0, d.it->setComplexType(0, 65534));
    EXPECT_EQ(NS201 + ":alertmType", d.it->curType());
    EXPECT_EQ(65534, d.type());
}

TEST_F(Part33ComplexType, ByIdsWithoutANameFailsAndChangesNothing) {
    Doc d;
    d.plainContainer("alerts");
    const std::string before = d.bytes();
    EXPECT_EQ(-1, d.it->setComplexType(0, 99));       // no such type
    EXPECT_EQ(-1, d.it->setComplexType(0, 0));        // no type
    EXPECT_EQ(-1, d.it->setComplexType(5000, 101));   // no such namespace
    EXPECT_EQ(-1, d.it->setComplexType(150, 101));    // 150 is no namespace (IDs up to 200 have no name)
    EXPECT_EQ(before, d.bytes());
    EXPECT_EQ(QKL::binary::TYPE_CONTAINER, d.type());
}

TEST_F(Part33ComplexType, OnlyAPlainContainerTakesATypeOtherNodesAnswer0Unchanged) {
    // Part 2.2: the internals change the type only when the 32-bit word type+ns is 50.
    Doc d;
    d.plainContainer("alerts");  // type 50, ns 0: works
    EXPECT_EQ(0, d.it->setComplexType(""s, "T"s));
    EXPECT_EQ("T", d.it->curType());
    // Already typed: stays as it is.
    EXPECT_EQ(0, d.it->setComplexType(""s, "U"s));
    EXPECT_EQ("T", d.it->curType());
    ASSERT_EQ(0, d.it->seekUp());

    // A fresh element from newChild is type 0, not a container: unchanged.
    ASSERT_EQ(0, d.it->newChild("veid"));
    ASSERT_EQ(QKL::binary::TYPE_ELEMENT, d.type());
    EXPECT_EQ(0, d.it->setComplexType(""s, "T"s));
    EXPECT_EQ(QKL::binary::TYPE_ELEMENT, d.type());
    EXPECT_EQ("", d.it->curType());
    ASSERT_EQ(0, d.it->seekUp());

    // A value node: unchanged, the value kept.
    ASSERT_EQ(0, d.it->putValue("text"s, "alert"));
    ASSERT_EQ(0, d.it->seek("alert"));
    EXPECT_EQ(0, d.it->setComplexType(""s, "T"s));
    EXPECT_EQ(QKL::binary::TYPE_STRING, d.type());
    EXPECT_EQ("text", valueAt(*d.it, ""));
    ASSERT_EQ(0, d.it->seekUp());

    // A container with a namespace: unchanged.
    d.plainContainer("time");
    ASSERT_EQ(0, d.it->setNamespace(201));
    EXPECT_EQ(0, d.it->setComplexType(""s, "T"s));
    EXPECT_EQ(QKL::binary::TYPE_CONTAINER, d.type());
    EXPECT_EQ("", d.it->curType());
}

TEST_F(Part33ComplexType, TheRootIsAPlainContainerToo) {
    Doc d;
    ASSERT_EQ(QKL::binary::TYPE_CONTAINER, d.type());
    EXPECT_EQ(0, d.it->setComplexType("urn:root"s, "R"s));
    EXPECT_EQ("urn:root:R", d.it->curType());
}

TEST_F(Part33ComplexType, ATypedContainerStillTakesChildrenAndTravels) {
    Doc d;
    d.plainContainer("alerts");
    ASSERT_EQ(0, d.it->setComplexType("urn:types"s, "T"s));
    ASSERT_EQ(0, d.it->putValue("v"s, "veid"));
    EXPECT_EQ((Names{"alert", "veid"}), childNames(*d.it));
    const std::string bytes = d.bytes();
    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    ASSERT_TRUE(received);
    std::unique_ptr<QKLMessageIterator> it(received->newIterator());
    ASSERT_EQ(0, it->seek("alerts"));
    EXPECT_EQ("urn:types:T", it->curType());
    EXPECT_EQ("v", valueAt(*it, "veid"));
}

TEST_F(Part33ComplexType, GetFullTypeName) {
    Doc d;
    std::string out;
    EXPECT_EQ(0, d.bit().getFullTypeName(0, ALERTM_TYPE, out));
    EXPECT_EQ("alertmType", out);
    EXPECT_EQ(0, d.bit().getFullTypeName(201, EID_LIST_TYPE, out));
    EXPECT_EQ(NS201 + ":eid_listType", out);
    out = "junk";
    EXPECT_EQ(-1, d.bit().getFullTypeName(201, 99, out));  // the type has no name: out emptied
    EXPECT_EQ("", out);
    out = "junk";
    EXPECT_EQ(-1, d.bit().getFullTypeName(0, 0, out));
    EXPECT_EQ("", out);
    EXPECT_EQ(-1, d.bit().getFullTypeName(5000, ALERTM_TYPE, out));  // the namespace has no name
    // Per-document namespaces and types.
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->setNamespace("urn:p"s));
    const int ns = d.it->curNamespaceID();
    EXPECT_EQ(0, d.bit().getFullTypeName(ns, ALERTM_TYPE, out));
    EXPECT_EQ("urn:p:alertmType", out);
    ASSERT_EQ(0, d.it->seekUp());
    d.plainContainer("veid");
    ASSERT_EQ(0, d.it->setComplexType(""s, "Local"s));
    EXPECT_EQ(0, d.bit().getFullTypeName(0, d.type(), out));
    EXPECT_EQ("Local", out);
}

// ================================================================================================
// curType: the namespace prefix and the 32767 boundary
// ================================================================================================

// Gives the type ID `id` the name `name` in the document's map (as a received document could).
void nameType(Doc& d, int id, const char* name) {
    ASSERT_EQ(id, d.idMap().insertID(QKLProtocolIDMap::CharArrayEx(CharArray(name)), id, QKLProtocolIDMap::TYPE, true));
}
// Gives the current plain container the type code `type`, then the namespace `ns`.
void typeThenNamespace(Doc& d, int type, int ns) {
    BinaryPath path = d.bit().path();
    d.internals().setComplexType(path, type);
    ASSERT_EQ(type, d.type());
    d.it->setNamespace(ns);
    ASSERT_EQ(ns, d.node().ns());
}

TEST_F(Part33CurType, AVocabularyTypeWithANamespaceHasThePrefix) {
    Doc d;
    d.plainContainer("alerts");
    typeThenNamespace(d, EID_LIST_TYPE, 201);
    EXPECT_EQ(NS201 + ":eid_listType", d.it->curType());
    ASSERT_EQ(0, d.it->setNamespace(0));
    EXPECT_EQ("eid_listType", d.it->curType());
}

TEST_F(Part33CurType, ANamespaceWithoutANameGivesTheEmptyString) {
    Doc d;
    d.plainContainer("alerts");
    typeThenNamespace(d, EID_LIST_TYPE, 5000);
    EXPECT_EQ("", d.it->curType());
}

TEST_F(Part33CurType, CodesFrom32767UpCarryNoPrefix) {
    Doc d;
    nameType(d, 32766, "below");
    nameType(d, 32767, "at");
    d.plainContainer("alerts");
    typeThenNamespace(d, 32766, 201);
    EXPECT_EQ(NS201 + ":below", d.it->curType());
    ASSERT_EQ(0, d.it->seekUp());
    d.plainContainer("veid");
    typeThenNamespace(d, 32767, 201);
    EXPECT_EQ("at", d.it->curType());
    ASSERT_EQ(0, d.it->seekUp());
    // Per-document type codes (65534 ...) are above it: a namespace on the node is ignored.
    d.plainContainer("alert");
    ASSERT_EQ(0, d.it->setComplexType(""s, "T"s));
    ASSERT_EQ(0, d.it->setNamespace(201));
    EXPECT_EQ("T", d.it->curType());
}

TEST_F(Part33CurType, WithoutADocumentIsEmpty) {
    QKL::auto_destroy<> empty(QKL::QKLMsgFactory::createNew());
    std::unique_ptr<QKLMessageIterator> it(empty->newIterator());
    EXPECT_EQ("", it->curType());
    EXPECT_EQ("", it->curName());
}

// ================================================================================================
// curName
// ================================================================================================

TEST_F(Part33CurName, VocabularyAndPerDocumentTags) {
    Doc d;
    EXPECT_EQ("packet", d.it->curName());
    ASSERT_EQ(0, d.it->newChild("alerts"));
    EXPECT_EQ("alerts", d.it->curName());
    ASSERT_EQ(0, d.it->newChild("my_own"));
    EXPECT_EQ("my_own", d.it->curName());
}

TEST_F(Part33CurName, AHeaderAttributeTagHasNoName) {
    Doc d;
    ASSERT_EQ(0, d.message->setVersion(40500));
    ASSERT_EQ(0, d.message->setPriority(3));
    ASSERT_EQ(0, d.it->seek(QKLBinary::VERSION_ATTRIBUTE));
    EXPECT_EQ(101, d.bit().curID());
    EXPECT_EQ("", d.it->curName());  // findIDC ignores IDs up to 200
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->seek(QKLBinary::PRIORITY_ATTRIBUTE));
    EXPECT_EQ("", d.it->curName());
}

TEST_F(Part33CurName, ANamespaceIdAsATagGivesTheNamespaceName) {
    // Element and namespace IDs share one space (Part 4.2): findIDC answers for both.
    Doc d;
    ASSERT_EQ(0, d.it->newChild(201));
    EXPECT_EQ(NS201, d.it->curName());
}

TEST_F(Part33CurName, AReceivedDocumentsPerDocumentNamesResolve) {
    Doc d;
    ASSERT_EQ(0, d.it->newChild("name_a"));
    ASSERT_EQ(0, d.it->newChild("name_b"));
    const std::string bytes = d.bytes();
    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    ASSERT_TRUE(received);
    std::unique_ptr<QKLMessageIterator> it(received->newIterator());
    ASSERT_EQ(0, it->firstChild());
    EXPECT_EQ("name_a", it->curName());
    ASSERT_EQ(0, it->firstChild());
    EXPECT_EQ("name_b", it->curName());
}

// ================================================================================================
// Subtree operations
// ================================================================================================

// packet( origin="me", alerts( veid="v", x_private( y_private=7 ) ), data )
void buildSample(Doc& d) {
    ASSERT_EQ(0, d.it->putValue("me"s, "origin"));
    ASSERT_EQ(0, d.it->newChild("alerts"));
    ASSERT_EQ(0, d.it->putValue("v"s, "veid"));
    ASSERT_EQ(0, d.it->newChild("x_private"));
    ASSERT_EQ(0, d.it->putValue(7, "y_private"));
    ASSERT_EQ(0, d.it->seekRoot());
    ASSERT_EQ(0, d.it->newChild("data"));
    ASSERT_EQ(0, d.it->seekRoot());
}

std::string subtreeBytes(const QKLMessageIterator& it) {
    char* buf = nullptr;
    int len = 0;
    EXPECT_EQ(0, it.serializeFromChild(&buf, &len));
    std::string out(buf ? buf : "", buf ? std::size_t(len) : 0);
    std::free(buf);
    return out;
}

void expectSampleAlerts(const QKLMessageIterator& alerts) {
    EXPECT_EQ("alerts", alerts.curName());
    EXPECT_EQ((Names{"veid", "x_private"}), childNames(alerts));
    EXPECT_EQ("v", valueAt(alerts, "veid"));
    int y = 0;
    EXPECT_EQ(0, alerts.getValue(y, "x_private/y_private"s));
    EXPECT_EQ(7, y);
}

TEST_F(Part33Subtree, SerializeFromChildGivesADocumentWhoseRootIsTheCurrentElement) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(0, d.it->seek("alerts"));
    const std::string bytes = subtreeBytes(*d.it);
    ASSERT_GE(bytes.size(), 8u);
    EXPECT_NE(0, QKLBinary::isOfTheKind(bytes.data()));
    EXPECT_EQ(int(bytes.size()), QKLBinary::isComplete(bytes.data(), int(bytes.size())));
    QKL::auto_destroy<> sub(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    ASSERT_TRUE(sub);
    std::unique_ptr<QKLMessageIterator> it(sub->newIterator());
    expectSampleAlerts(*it);
    EXPECT_EQ(-1, it->seek("/origin"));  // nothing outside the subtree
    // The iterator and the message it came from are unchanged.
    EXPECT_EQ("alerts", d.it->curName());
    EXPECT_EQ("me", valueAt(*d.it, "/origin"));
}

TEST_F(Part33Subtree, SerializeFromChildOnTheRootIsTheWholeDocument) {
    Doc d;
    buildSample(d);
    EXPECT_EQ(d.bytes(), subtreeBytes(*d.it));
}

TEST_F(Part33Subtree, SerializeFromChildOfAValueNode) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(0, d.it->seek("alerts/veid"));
    const std::string bytes = subtreeBytes(*d.it);
    QKL::auto_destroy<> sub(QKL::QKLMsgFactory::createNew(bytes.data(), int(bytes.size())));
    ASSERT_TRUE(sub);
    std::unique_ptr<QKLMessageIterator> it(sub->newIterator());
    EXPECT_EQ("veid", it->curName());
    EXPECT_EQ("v", valueAt(*it, ""));
}

TEST_F(Part33Subtree, DeserializeToChildInsertsUnderTheCurrentElementAndStays) {
    Doc source;
    buildSample(source);
    ASSERT_EQ(0, source.it->seek("alerts"));
    const std::string bytes = subtreeBytes(*source.it);

    Doc d;
    ASSERT_EQ(0, d.it->newChild("other_private"));  // takes -2 here: the names must be rewritten
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("data"));
    ASSERT_EQ(0, d.it->putValue("first"s, "veid"));
    EXPECT_EQ(0, d.it->deserializeToChild(bytes.data(), int(bytes.size())));
    EXPECT_EQ("data", d.it->curName());
    EXPECT_EQ((Names{"veid", "alerts"}), childNames(*d.it));
    ASSERT_EQ(0, d.it->seek("alerts"));
    expectSampleAlerts(*d.it);
    ASSERT_EQ(0, d.it->seek("x_private"));
    EXPECT_EQ(-3, d.bit().curID());
    // The whole document reads back through its own bytes.
    const std::string all = d.bytes();
    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(all.data(), int(all.size())));
    ASSERT_TRUE(received);
    std::unique_ptr<QKLMessageIterator> it(received->newIterator());
    ASSERT_EQ(0, it->seek("data/alerts"));
    expectSampleAlerts(*it);
}

TEST_F(Part33Subtree, DeserializeToChildRefusesBadBytesAndLeavesTheDocument) {
    Doc d;
    buildSample(d);
    const std::string before = d.bytes();
    EXPECT_EQ(-1, d.it->deserializeToChild("", 0));
    EXPECT_EQ(-1, d.it->deserializeToChild(before.data(), 7));
    std::string cut = before.substr(0, before.size() - 8);
    EXPECT_EQ(-1, d.it->deserializeToChild(cut.data(), int(cut.size())));
    EXPECT_EQ(before, d.bytes());
}

TEST_F(Part33Subtree, CopyToChildFromAnotherMessagesIteratorNamesTravelByName) {
    Doc source;
    ASSERT_EQ(0, source.it->newChild("alerts"));
    ASSERT_EQ(0, source.it->putValue("v"s, "only_in_source"));  // -2 in the source
    ASSERT_EQ(0, source.it->setNamespace("urn:src"s));  // on "alerts": value writes end on the parent

    Doc d;
    ASSERT_EQ(0, d.it->newChild("only_in_target"));  // -2 in the target
    ASSERT_EQ(0, d.it->seekUp());
    ASSERT_EQ(0, d.it->newChild("data"));
    EXPECT_EQ(0, d.it->copyToChild(source.it.get()));
    EXPECT_EQ("data", d.it->curName());
    EXPECT_EQ((Names{"alerts"}), childNames(*d.it));
    ASSERT_EQ(0, d.it->seek("alerts/only_in_source"));
    EXPECT_EQ("only_in_source", d.it->curName());
    // -2 in the source, taken in the target: the copied "alerts" gave its namespace
    // -3 (65533) first, then its child got -4.
    EXPECT_EQ(-4, d.bit().curID());
    EXPECT_EQ("v", valueAt(*d.it, ""));
    ASSERT_EQ(0, d.it->seekUp());
    const int ns = d.it->curNamespaceID();
    EXPECT_EQ(65533, ns);
    EXPECT_EQ("urn:src", std::string(d.idMap().findIDC(ns).ptr(), d.idMap().findIDC(ns).length()));
    // The source is unchanged and its iterator still stands on "alerts".
    EXPECT_EQ("alerts", source.it->curName());
    EXPECT_EQ(ALERTS, static_cast<QKLBinaryIterator&>(*source.it).curID());
    EXPECT_EQ(0, source.it->seek("only_in_source"));
    EXPECT_EQ(-2, static_cast<QKLBinaryIterator&>(*source.it).curID());
}

TEST_F(Part33Subtree, CopyToChildKeepsComplexTypesByName) {
    Doc source;
    source.plainContainer("alerts");
    ASSERT_EQ(0, source.it->setComplexType("urn:types"s, "T"s));
    Doc d;
    d.plainContainer("veid");
    ASSERT_EQ(0, d.it->setComplexType(""s, "Other"s));  // 65534 in the target
    ASSERT_EQ(0, d.it->seekUp());
    EXPECT_EQ(0, d.it->copyToChild(source.it.get()));
    ASSERT_EQ(0, d.it->seek("alerts"));
    EXPECT_EQ("urn:types:T", d.it->curType());
    EXPECT_EQ((Names{"alert"}), childNames(*d.it));
}

TEST_F(Part33Subtree, CopyToChildWithinOneDocument) {
    Doc d;
    buildSample(d);
    std::unique_ptr<QKLMessageIterator> from(d.it->newIterator(false));
    ASSERT_EQ(0, from->seek("alerts"));
    ASSERT_EQ(0, d.it->seek("data"));
    EXPECT_EQ(0, d.it->copyToChild(from.get()));
    ASSERT_EQ(0, d.it->seek("alerts"));
    expectSampleAlerts(*d.it);
    ASSERT_EQ(0, d.it->seek("/alerts"));
    expectSampleAlerts(*d.it);
}

TEST_F(Part33Subtree, CopyToChildFromNullOrAnIteratorWithoutPositionFails) {
    Doc d;
    buildSample(d);
    const std::string before = d.bytes();
    EXPECT_EQ(-1, d.it->copyToChild(nullptr));
    QKL::auto_destroy<> empty(QKL::QKLMsgFactory::createNew());
    std::unique_ptr<QKLMessageIterator> nowhere(empty->newIterator());  // an empty path
    EXPECT_EQ(-1, d.it->copyToChild(nowhere.get()));
    EXPECT_EQ(before, d.bytes());
}

TEST_F(Part33Subtree, DeleteFromChildRemovesTheSubtreeAndLeavesTheIteratorOnTheParent) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(0, d.it->seek("alerts/x_private"));
    EXPECT_EQ(0, d.it->deleteFromChild());
    EXPECT_EQ("alerts", d.it->curName());
    EXPECT_EQ(2u, d.bit().path().depth());
    EXPECT_EQ((Names{"veid"}), childNames(*d.it));
    ASSERT_EQ(0, d.it->seek("veid"));
    EXPECT_EQ(0, d.it->deleteFromChild());
    EXPECT_EQ("alerts", d.it->curName());
    EXPECT_EQ((Names{}), childNames(*d.it));
    ASSERT_EQ(0, d.it->seekUp());
    EXPECT_EQ((Names{"origin", "alerts", "data"}), childNames(*d.it));
    // The document is still whole.
    const std::string all = d.bytes();
    QKL::auto_destroy<> received(QKL::QKLMsgFactory::createNew(all.data(), int(all.size())));
    ASSERT_TRUE(received);
    std::unique_ptr<QKLMessageIterator> it(received->newIterator());
    EXPECT_EQ((Names{"origin", "alerts", "data"}), childNames(*it));
    EXPECT_EQ("me", valueAt(*it, "origin"));
}

TEST_F(Part33Subtree, ModifyingOperationsOnASharedMessageCopyTheDocumentFirst) {
    Doc d;
    buildSample(d);
    QKL::auto_destroy<> other(d.message->copy(false));
    ASSERT_TRUE(d.message->multiReference());
    const std::string shared = d.bytes();
    ASSERT_EQ(0, d.it->seek("alerts"));
    EXPECT_EQ(0, d.it->deleteFromChild());
    EXPECT_FALSE(d.message->multiReference());
    std::unique_ptr<QKLMessageIterator> it(other->newIterator());
    EXPECT_EQ(0, it->seek("alerts"));
    char* buf = nullptr;
    int len = 0;
    ASSERT_EQ(0, other->serialize(&buf, &len, nullptr, 40500));
    EXPECT_EQ(shared, std::string(buf, std::size_t(len)));
    std::free(buf);
    EXPECT_NE(shared, d.bytes());
}

TEST_F(Part33Subtree, NamesNamespacesAndTypesOnASharedMessageCopyTheDocumentFirst) {
    Doc d;
    d.plainContainer("alerts");
    auto bytesOf = [](const QKLMessage& m) {
        char* buf = nullptr;
        int len = 0;
        EXPECT_EQ(0, m.serialize(&buf, &len, nullptr, 40500));
        std::string out(buf, std::size_t(len));
        std::free(buf);
        return out;
    };
    QKL::auto_destroy<> first(d.message->copy(false));
    const std::string untyped = d.bytes();
    ASSERT_EQ(0, d.it->setComplexType(""s, "T"s));
    EXPECT_FALSE(d.message->multiReference());
    EXPECT_EQ(untyped, bytesOf(*first));
    EXPECT_EQ("T", d.it->curType());

    QKL::auto_destroy<> second(d.message->copy(false));
    const std::string typed = d.bytes();
    ASSERT_EQ(0, d.it->setNamespace("urn:n"s));
    EXPECT_FALSE(d.message->multiReference());
    EXPECT_EQ(typed, bytesOf(*second));

    QKL::auto_destroy<> third(d.message->copy(false));
    const std::string named = d.bytes();
    ASSERT_EQ(0, d.it->newChild("fresh_name"));
    EXPECT_FALSE(d.message->multiReference());
    EXPECT_EQ(named, bytesOf(*third));
    std::unique_ptr<QKLMessageIterator> it(third->newIterator());
    EXPECT_EQ(-1, it->seek("alerts/fresh_name"));
    EXPECT_EQ(0, d.it->seek("/alerts/fresh_name"));
}

TEST_F(Part33Subtree, ToTextFromChildIsTheTextOfTheCurrentSubtree) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(0, d.it->seek("alerts"));
    char* text = d.it->toTextFromChild();
    ASSERT_NE(nullptr, text);
    const std::string xml(text);
    std::free(text);
    // Element names may carry an "nsN:" prefix; the first element is the current one.
    EXPECT_EQ(0u, xml.find("<"));
    EXPECT_LT(xml.find("alerts"), xml.find("veid"));
    EXPECT_NE(std::string::npos, xml.find("veid>v</"));
    EXPECT_NE(std::string::npos, xml.find("x_private"));
    EXPECT_NE(std::string::npos, xml.find("y_private>7</"));
    EXPECT_NE(std::string::npos, xml.find("alerts>\n"));
    EXPECT_EQ(std::string::npos, xml.find("packet"));
    EXPECT_EQ(std::string::npos, xml.find("origin"));
}

TEST_F(Part33Subtree, FromTextToChildInsertsTheParsedTreeUnderTheCurrentElement) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(0, d.it->seek("data"));
    EXPECT_EQ(0, d.it->fromTextToChild("<alerts><veid>w</veid><text_private>t</text_private></alerts>"));
    EXPECT_EQ("data", d.it->curName());
    EXPECT_EQ((Names{"alerts"}), childNames(*d.it));
    EXPECT_EQ("w", valueAt(*d.it, "alerts/veid"));
    EXPECT_EQ("t", valueAt(*d.it, "alerts/text_private"));
    const std::string before = d.bytes();
    EXPECT_EQ(-1, d.it->fromTextToChild("<alerts><veid>w</alert></alerts>"));
    EXPECT_EQ(before, d.bytes());
}

TEST_F(Part33Subtree, ToTextFromChildThenFromTextToChildCopiesTheSubtree) {
    Doc d;
    buildSample(d);
    ASSERT_EQ(0, d.it->seek("alerts"));
    char* text = d.it->toTextFromChild();
    ASSERT_NE(nullptr, text);
    ASSERT_EQ(0, d.it->seek("/data"));
    EXPECT_EQ(0, d.it->fromTextToChild(text));
    std::free(text);
    ASSERT_EQ(0, d.it->seek("alerts"));
    EXPECT_EQ((Names{"veid", "x_private"}), childNames(*d.it));
    EXPECT_EQ("v", valueAt(*d.it, "veid"));
    EXPECT_EQ("7", valueAt(*d.it, "x_private/y_private"));  // as text: the text form has no types
    ASSERT_EQ(0, d.it->seekUp());
    EXPECT_EQ("data", d.it->curName());
}

// ================================================================================================
// A stale iterator: every modifying or validating operation gives -1
// ================================================================================================

TEST_F(Part33Stale, AfterANodeBeforeItsPositionIsErasedEveryOperationFails) {
    Doc d;
    buildSample(d);
    std::unique_ptr<QKLMessageIterator> second(d.message->newIterator());  // a second counted iterator
    ASSERT_EQ(0, second->seek("data"));
    ASSERT_EQ(0, d.it->seek("alerts"));
    ASSERT_EQ(0, d.it->deleteFromChild());  // "alerts" stood before "data"
    const std::string before = d.bytes();
    EXPECT_EQ(-1, second->curNamespaceID());
    EXPECT_EQ(-1, second->setNamespace(201));
    EXPECT_EQ(-1, second->setNamespace(NS201));
    EXPECT_EQ(-1, second->newChild("veid"));
    EXPECT_EQ(-1, second->newChild("stale_private"));
    EXPECT_EQ(-1, second->setComplexType(""s, "T"s));
    EXPECT_EQ(-1, second->setComplexType(0, ALERTM_TYPE));
    EXPECT_EQ(-1, second->deleteFromChild());
    EXPECT_EQ(-1, second->copyToChild(d.it.get()));
    char* buf = nullptr;
    int len = 0;
    EXPECT_EQ(-1, second->serializeFromChild(&buf, &len));
    EXPECT_EQ(nullptr, buf);
    const std::string sub = subtreeBytes(*d.it);
    EXPECT_EQ(-1, second->deserializeToChild(sub.data(), int(sub.size())));
    second->saveNamespace("urn:stale"s);
    EXPECT_TRUE(static_cast<QKLBinaryIterator&>(*second).path().namespaces.empty());
    EXPECT_EQ(before, d.bytes());
}

}  // namespace

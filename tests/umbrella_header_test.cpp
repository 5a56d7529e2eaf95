// qkl/QKL.h is the only include a program needs (CONVENTIONS.md): this file
// includes nothing else of the library and touches one name of each header.
#include "qkl/QKL.h"

#include <gtest/gtest.h>

TEST(UmbrellaHeader, ReachesEveryPublicHeader) {
    EXPECT_EQ(QKL::getElemIdByStringDefault("packet", 6), 1398);
    EXPECT_EQ(QKL::QKLProtocolIDMap::BEGIN_ID, -2);
    EXPECT_EQ(QKL::binary::HEADER_SIZE, 8u);
    QKL::QKLBinaryInternals doc;
    EXPECT_EQ(doc.turnBlank(), 0);
    QKL::BinaryPath path;
    EXPECT_TRUE(path.empty());
    QKL::QKLSessionID id;
    id.create(40500, 1, "a", "b");
    EXPECT_EQ(id.getVersion(), 40500);
    EXPECT_EQ(QKL::ignorecase_string("ABC"), QKL::ignorecase_string("abc"));
    EXPECT_EQ(QKL::intToStr(7), "7");
    EXPECT_EQ(QKL::Internal::nullCharArray.length(), 0u);
    QKL::Internal::SearchTblItem trie;
    EXPECT_TRUE(trie.addItem(5, "x", 1).second);
    QKL::QKLLookASide<int> allocator;
    int* p = allocator.allocate(1);
    allocator.deallocate(p, 1);
    // The message model (issue 4).
    QKL::auto_destroy<QKL::QKLMessage> message(QKL::QKLMsgFactory::createNew());
    ASSERT_TRUE(message);
    EXPECT_EQ(message->create("packet"), 0);
    EXPECT_STREQ(message->messageType(), QKL::QKLBinary::MessageType);
    QKL::QKLBinaryIterator root(static_cast<QKL::QKLBinary*>(message.get()));
    EXPECT_EQ(root.curID(), 1398);
    EXPECT_TRUE(QKL::getMsgVocabulary().count("QKLBinary"));
    // The text form's namespaces and the SOAP bridge (issue 6).
    EXPECT_STREQ(QKL::XmlSchema, "http://www.w3.org/2001/XMLSchema");
    EXPECT_EQ(QKL::soapVersionMap().size(), 3u);
    QKL::QKLSoapConverter converter;
    EXPECT_EQ(converter.getSoapVersion(), QKL::SOAP_1_1);
}

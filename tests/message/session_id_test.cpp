// "qkl.version.type.EID.targetEID.generated": read from the front, the target EID deliberately from the back.
#include <gtest/gtest.h>

#include "qkl/message/QKLSessionID.h"

using QKL::QKLSessionID;

TEST(SessionID, EachFormReadsAsItsFieldsAndComparesIgnoringCase) {
    const auto created = [](int version, int type, const char* eid, const char* targetEid) {
        QKLSessionID id("old text");
        return id.create(version, type, eid, targetEid), id;
    };
    const std::string kept = "<kept>";  // a reader whose '.' is missing leaves its out-parameter
    const struct { QKLSessionID id; const char* printed; int version, type; std::string eid, target; } forms[] = {
        {created(40500, 1, "e1", "e2"), "qkl.40500.1.e1.e2.", 40500, 1, "e1", "e2"},
        {created(40500, 2, "host.example.com", "peer"), "qkl.40500.2.host.example.com.peer.", 40500, 2, "host", "peer"},
        {QKLSessionID("qkl.1.2.a.b.c.X"), "", 1, 2, "a", "c"},
        {QKLSessionID("qkl.12ab. -5.e.t.id"), "", 12, -5, "e", "t"},  // numbers as atoi reads them
        {QKLSessionID("qkl.1.2"), "", 1, 0, kept, "1"},
        {QKLSessionID("qkl.7"), "", 0, 0, kept, kept},
        {QKLSessionID(""), "", 0, 0, kept, kept},
    };
    for (const auto& form : forms) {
        SCOPED_TRACE(form.id);
        EXPECT_TRUE(*form.printed == '\0' || form.id.substr(0, form.id.rfind('.') + 1) == form.printed);
        std::string eid = kept, target = kept;
        form.id.getEID(eid), form.id.getTargetEID(target);
        EXPECT_EQ(std::to_string(form.version) + " " + std::to_string(form.type) + " " + form.eid + " " + form.target,
                  std::to_string(form.id.getVersion()) + " " + std::to_string(form.id.getType()) + " " + eid + " " + target);
    }
    EXPECT_TRUE(QKLSessionID("qkl.40500.1.Node-A.b.1B4E") == QKLSessionID("QKL.40500.1.node-a.B.1b4e"));
    EXPECT_FALSE(QKLSessionID("qkl.1.2.a.b.X") == QKLSessionID("qkl.1.2.a.b.X2"));
    EXPECT_FALSE(created(40500, 1, "e1", "e2") == created(40500, 1, "e1", "e2"));  // a new generated part each time
}

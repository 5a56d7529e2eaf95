// The command-line tool qklmsg (CONVENTIONS.md, "The command-line tool qklmsg"),
// run as a separate process on files in a temporary directory: every command,
// the exit statuses 0 / 1 / 2, one line on standard error for a refused input,
// no partial output file, and no crash or hang on hostile input.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "qkl/QKL.h"

namespace {

using QKL::auto_destroy;
using QKL::QKLMessage;
using QKL::QKLMessageIterator;
using QKL::QKLMsgFactory;

// Generous: the tool may run under the sanitizers on a loaded machine. Only a
// hang reaches it; it asserts no time.
constexpr std::chrono::seconds kToolDeadline(60);

const char kMagic[] = "\x98\xBA\xDC\xFE";  // a binary document's first four bytes

const char kRequest[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<soap:Envelope xmlns:soap="http://schemas.xmlsoap.org/soap/envelope/">
<soap:Header><packet_header xmlns="http://www.qkl.example/webservices/qkl/4.5.0/protocol" id="7"><origin>client</origin></packet_header></soap:Header>
<soap:Body><GetList xmlns="http://www.qkl.example/webservices/qkl/4.5.0/env_manager"><scope>all</scope></GetList></soap:Body>
</soap:Envelope>
)";

// A message as XML text: eight nodes (packet, id, version, origin, data, env, two rows),
// two element names outside the vocabulary.
const char kMessage[] =
    R"(<packet id="7" version="4.5.0"><origin>client</origin><data><qkltool_env><qkltool_row>1</qkltool_row>)"
    R"(<qkltool_row>2</qkltool_row></qkltool_env></data></packet>)";
constexpr int kMessageNodes = 8;

// The request with one piece of text replaced.
std::string requestWith(const std::string& from, const std::string& to) {
    std::string text = kRequest;
    const std::size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::size_t countOf(const std::string& text, const std::string& piece) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size())) ++count;
    return count;
}

std::size_t lineCount(const std::string& text) { return countOf(text, "\n"); }

struct ToolRun {
    bool finished = false;   // false: killed at the deadline (a hang)
    bool signalled = false;  // ended by a signal (a crash)
    int status = -1;         // the exit status when it exited
    std::string out;
    std::string err;
};

std::ostream& operator<<(std::ostream& os, const ToolRun& run) {
    return os << "finished " << run.finished << ", signalled " << run.signalled << ", status " << run.status
              << "\n--- stdout:\n" << run.out.substr(0, 2000) << "\n--- stderr:\n" << run.err.substr(0, 2000);
}

class QklmsgTool : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/qklmsg_tool_test_XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(pattern));
        m_dir = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }

    std::string path(const std::string& name) const { return m_dir + "/" + name; }

    std::string writeFile(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }

    std::string readFile(const std::string& fullPath) const {
        std::ifstream in(fullPath, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    bool exists(const std::string& fullPath) const { return std::filesystem::exists(fullPath); }

    // Files in the temporary directory, so a leftover temporary output shows.
    std::size_t fileCount() const {
        const std::filesystem::directory_iterator all(m_dir);
        return std::size_t(std::distance(std::filesystem::begin(all), std::filesystem::end(all)));
    }

    // Runs qklmsg with `args`, standard input from `input`, and collects both streams.
    ToolRun run(const std::vector<std::string>& args, const std::string& input = "/dev/null") const {
        const std::string outPath = path(".stdout"), errPath = path(".stderr");
        const pid_t pid = ::fork();
        if (pid == 0) startTool(args, input, outPath, errPath);
        ToolRun result;
        if (pid < 0) return result;
        result.finished = waitFor(pid, result);
        result.out = readFile(outPath);
        result.err = readFile(errPath);
        std::filesystem::remove(outPath);
        std::filesystem::remove(errPath);
        return result;
    }

    // soap-to-msg of the good request into a file; its path.
    std::string convertedRequest(const std::string& name) const {
        const std::string request = writeFile("request.xml", kRequest);
        const ToolRun converted = run({"soap-to-msg", request, "-o", path(name)});
        EXPECT_EQ(0, converted.status) << converted;
        return path(name);
    }

    // The request converted by the tool, answered through the library as an
    // operator would (genReply, then a row under data/env_manager), and written
    // to a file as XML text or as a binary document; its path.
    std::string writeReply(const std::string& name, bool binary) const {
        const std::string text = readFile(convertedRequest("request.msg"));
        auto_destroy<QKLMessage> request(QKLMsgFactory::createNew(text.c_str(), int(text.size()) + 1));
        EXPECT_TRUE(request);
        if (!request) return std::string();
        auto_destroy<QKLMessage> reply(request->genReply("agent"));
        const std::unique_ptr<QKLMessageIterator> at(reply->newIterator());
        EXPECT_EQ(0, at->seek(QKLMessage::DATA));
        EXPECT_EQ(0, at->newChild("env_manager"));
        EXPECT_EQ(0, at->putValue(std::string("web-01"), "server"));
        char* bytes = nullptr;
        int length = 0;
        if (binary) {
            EXPECT_EQ(0, reply->serialize(&bytes, &length, nullptr, QKL::QKLBinaryInternals::DEFAULT_MESSAGE_VERSION));
        } else {
            bytes = reply->toText(nullptr, "", QKLMessageIterator::TEXT_FLAGS);
            length = bytes ? int(std::strlen(bytes)) : 0;
        }
        const std::string written = writeFile(name, std::string(bytes ? bytes : "", std::size_t(length)));
        std::free(bytes);
        return written;
    }

private:
    [[noreturn]] static void startTool(const std::vector<std::string>& args, const std::string& input,
                                       const std::string& outPath, const std::string& errPath) {
        const int in = ::open(input.c_str(), O_RDONLY);
        const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (in < 0 || out < 0 || err < 0) _exit(126);
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        std::vector<char*> argv{const_cast<char*>(QKL_TOOL_PATH)};
        for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        ::execv(QKL_TOOL_PATH, argv.data());
        _exit(127);
    }

    // Polls the child until it ends or the deadline passes (then kills and reaps it).
    static bool waitFor(pid_t pid, ToolRun& result) {
        const auto deadline = std::chrono::steady_clock::now() + kToolDeadline;
        int status = 0;
        while (std::chrono::steady_clock::now() < deadline) {
            if (::waitpid(pid, &status, WNOHANG) == pid) {
                result.signalled = WIFSIGNALED(status);
                if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        return false;
    }

    std::string m_dir;
};

// ---- usage -----------------------------------------------------------------------------------

TEST_F(QklmsgTool, UsageErrorsExitTwo) {
    const std::string message = writeFile("message.xml", kMessage);
    const std::vector<std::vector<std::string>> misuses = {
        {},
        {"no-such-command"},
        {"to-xml"},
        {"to-xml", message, message},
        {"to-xml", message, "-x"},
        {"to-xml", message, "-b"},
        {"to-xml", message, "-o"},
        {"to-xml", message, "-o", path("a"), "-o", path("b")},
        {"msg-to-soap", message, "--soap", "1.3"},
        {"msg-to-soap", message, "--soap"},
        {"demo", "extra"},
        {"vocab"},
    };
    for (const std::vector<std::string>& args : misuses) {
        const ToolRun result = run(args);
        EXPECT_TRUE(result.finished && !result.signalled) << result;
        EXPECT_EQ(2, result.status) << result;
        EXPECT_NE(std::string::npos, result.err.find("usage: qklmsg")) << result;
        EXPECT_TRUE(result.out.empty()) << result;
    }
    EXPECT_FALSE(exists(path("a")));
}

// ---- demo ------------------------------------------------------------------------------------

TEST_F(QklmsgTool, DemoPrintsEveryStageAndTheSoapResponse) {
    const ToolRun result = run({"demo"});
    ASSERT_EQ(0, result.status) << result;
    EXPECT_NE(std::string::npos, result.out.find("<GetList xmlns=")) << result;             // the request
    EXPECT_NE(std::string::npos, result.out.find("<request>getlist</request>")) << result;  // the message
    EXPECT_NE(std::string::npos, result.out.find(">agent</")) << result;                    // the reply
    EXPECT_NE(std::string::npos, result.out.find("<getlistResponse xmlns=")) << result;     // the response
    EXPECT_NE(std::string::npos, result.out.find(QKL::Soap11EnvelopeNamespace)) << result;
    EXPECT_TRUE(result.err.empty()) << result;
}

// ---- to-xml, to-binary -----------------------------------------------------------------------

TEST_F(QklmsgTool, ToXmlOfXmlTextGivesTheMessageText) {
    const ToolRun first = run({"to-xml", writeFile("message.xml", kMessage)});
    ASSERT_EQ(0, first.status) << first;
    EXPECT_NE(std::string::npos, first.out.find("<origin>client</origin>")) << first;
    EXPECT_EQ(2u, countOf(first.out, "<qkltool_row>")) << first;
    // Its own output reads back to the same text.
    const ToolRun second = run({"to-xml", writeFile("again.xml", first.out)});
    ASSERT_EQ(0, second.status) << second;
    EXPECT_EQ(first.out, second.out);
}

TEST_F(QklmsgTool, ToBinaryThenToXmlGivesTheSameText) {
    const std::string message = writeFile("message.xml", kMessage);
    const ToolRun binary = run({"to-binary", message, "-o", path("message.bin")});
    ASSERT_EQ(0, binary.status) << binary;
    EXPECT_TRUE(binary.out.empty()) << binary;
    const std::string bytes = readFile(path("message.bin"));
    ASSERT_GE(bytes.size(), 8u);
    EXPECT_EQ(std::string(kMagic, 4), bytes.substr(0, 4));

    const ToolRun fromText = run({"to-xml", message});
    const ToolRun fromBinary = run({"to-xml", path("message.bin")});
    ASSERT_EQ(0, fromText.status) << fromText;
    ASSERT_EQ(0, fromBinary.status) << fromBinary;
    EXPECT_EQ(fromText.out, fromBinary.out);
}

TEST_F(QklmsgTool, DashReadsStandardInput) {
    const ToolRun binary = run({"to-binary", "-", "-o", path("message.bin")}, writeFile("message.xml", kMessage));
    ASSERT_EQ(0, binary.status) << binary;
    const ToolRun text = run({"to-xml", "-"}, path("message.bin"));
    ASSERT_EQ(0, text.status) << text;
    EXPECT_NE(std::string::npos, text.out.find("<origin>client</origin>")) << text;
}

// ---- soap-to-msg -----------------------------------------------------------------------------

TEST_F(QklmsgTool, SoapToMsgOfAGoodRequestGivesTheMessage) {
    const std::string request = writeFile("request.xml", kRequest);
    const ToolRun text = run({"soap-to-msg", request});
    ASSERT_EQ(0, text.status) << text;
    EXPECT_NE(std::string::npos, text.out.find("<request>getlist</request>")) << text;
    EXPECT_NE(std::string::npos, text.out.find("<target>env_manager</target>")) << text;
    EXPECT_NE(std::string::npos, text.out.find("<scope>all</scope>")) << text;

    const ToolRun binary = run({"soap-to-msg", request, "-b", "-o", path("message.bin")});
    ASSERT_EQ(0, binary.status) << binary;
    EXPECT_EQ(std::string(kMagic, 4), readFile(path("message.bin")).substr(0, 4));
    const ToolRun back = run({"to-xml", path("message.bin")});
    ASSERT_EQ(0, back.status) << back;
    EXPECT_NE(std::string::npos, back.out.find("<scope>all</scope>")) << back;
}

TEST_F(QklmsgTool, SoapToMsgOfABadRequestPrintsTheFaultEnvelope) {
    struct Case {
        std::string request;
        const char* faultString;
    };
    const Case cases[] = {
        {requestWith("http://schemas.xmlsoap.org/soap/envelope/", "urn:not-soap"),
         QKL::QKLSoapConverter::VersionMismatchText},
        {"not SOAP at all", QKL::QKLSoapConverter::VersionMismatchText},
        {requestWith("<GetList xmlns=\"http://www.qkl.example/webservices/qkl/4.5.0/env_manager\">", "<GetList>"),
         QKL::QKLSoapConverter::NoOperationText},
    };
    for (const Case& bad : cases) {
        const ToolRun result = run({"soap-to-msg", writeFile("bad.xml", bad.request), "-o", path("out.xml")});
        EXPECT_EQ(1, result.status) << result;
        EXPECT_NE(std::string::npos, result.out.find("<soap:Fault>")) << result;
        EXPECT_NE(std::string::npos, result.out.find(std::string("<faultstring>") + bad.faultString)) << result;
        EXPECT_EQ(1u, lineCount(result.err)) << result;
        EXPECT_NE(std::string::npos, result.err.find(bad.faultString)) << result;
        EXPECT_FALSE(exists(path("out.xml")));
    }
}

// The converter never returns on such a body (Part 6.2, deliberate): the tool refuses it first.
TEST_F(QklmsgTool, SoapToMsgRefusesACommentFirstBodyWithoutHanging) {
    const std::string request = writeFile("comment.xml", requestWith("<GetList ", "<!-- first --><GetList "));
    const ToolRun result = run({"soap-to-msg", request, "-o", path("out.xml")});
    ASSERT_TRUE(result.finished) << "qklmsg hung on a comment-first SOAP body";
    EXPECT_EQ(1, result.status) << result;
    EXPECT_EQ(1u, lineCount(result.err)) << result;
    EXPECT_NE(std::string::npos, result.err.find("comment.xml")) << result;
    EXPECT_FALSE(exists(path("out.xml")));
}

// ---- msg-to-soap -----------------------------------------------------------------------------

TEST_F(QklmsgTool, MsgToSoapAnswersInTheRequestedSoapVersion) {
    struct Case {
        std::vector<std::string> options;
        bool binaryReply;
        const char* envelopeNamespace;
    };
    const Case cases[] = {
        {{}, false, QKL::Soap11EnvelopeNamespace},
        {{"--soap", "1.1"}, false, QKL::Soap11EnvelopeNamespace},
        {{"--soap", "1.2"}, false, QKL::Soap12EnvelopeNamespace},
        {{"--soap", "1.2"}, true, QKL::Soap12EnvelopeNamespace},
    };
    for (const Case& each : cases) {
        std::vector<std::string> args = {"msg-to-soap", writeReply("reply", each.binaryReply)};
        args.insert(args.end(), each.options.begin(), each.options.end());
        const ToolRun result = run(args);
        ASSERT_EQ(0, result.status) << result;
        EXPECT_NE(std::string::npos, result.out.find(std::string("xmlns:soap=\"") + each.envelopeNamespace + '"'))
            << result;
        EXPECT_NE(std::string::npos, result.out.find("<getlistResponse")) << result;
        EXPECT_NE(std::string::npos, result.out.find("<server>web-01</server>")) << result;
    }
}

TEST_F(QklmsgTool, MsgToSoapOfAMessageWithoutCookieAnswersWithAFault) {
    const ToolRun result = run({"msg-to-soap", writeFile("message.xml", kMessage), "--soap", "1.2"});
    EXPECT_EQ(1, result.status) << result;
    EXPECT_NE(std::string::npos, result.out.find(QKL::Soap12EnvelopeNamespace)) << result;
    EXPECT_NE(std::string::npos, result.out.find(QKL::QKLSoapConverter::NoCookieText)) << result;
    EXPECT_EQ(1u, lineCount(result.err)) << result;
}

// ---- inspect ---------------------------------------------------------------------------------

// The nodes of a binary document, counted by the library's own walk.
int nodesOf(const std::string& bytes) {
    using QKL::binary::Format;
    const Format document(QKL::binary::Arena::readOnlyView(bytes.data(), unsigned(bytes.size())));
    int count = 0;
    std::vector<Format::node_range> ranges(1, document.root());
    while (!ranges.empty()) {
        Format::node_range& range = ranges.back();
        if (!range.valid()) {
            ranges.pop_back();
            continue;
        }
        ++count;
        const Format::node_range children = range.children();
        range = range.next();
        if (!children.empty()) ranges.push_back(children);
    }
    return count;
}

TEST_F(QklmsgTool, InspectPrintsOneLinePerNodeThenTheMapEntries) {
    ASSERT_EQ(0, run({"to-binary", writeFile("message.xml", kMessage), "-o", path("message.bin")}).status);
    ASSERT_EQ(kMessageNodes, nodesOf(readFile(path("message.bin"))));
    const ToolRun result = run({"inspect", path("message.bin")});
    ASSERT_EQ(0, result.status) << result;
    EXPECT_TRUE(result.err.empty()) << result;
    EXPECT_EQ(std::size_t(kMessageNodes), countOf(result.out, "\nnode @")) << result;
    EXPECT_NE(std::string::npos, result.out.find("<packet> tag 1398 type 50")) << result;
    EXPECT_EQ(2u, countOf(result.out, "<qkltool_row>")) << result;
    // The names outside the vocabulary are the map area's entries, after the nodes.
    const std::size_t lastNode = result.out.rfind("\nnode @");
    EXPECT_GT(result.out.find("element \"qkltool_env\""), lastNode) << result;
    EXPECT_GT(result.out.find("element \"qkltool_row\""), lastNode) << result;
}

TEST_F(QklmsgTool, InspectReadsXmlTextIntoABinaryDocumentAndSaysSo) {
    const ToolRun result = run({"inspect", writeFile("message.xml", kMessage)});
    ASSERT_EQ(0, result.status) << result;
    EXPECT_EQ(std::size_t(kMessageNodes), countOf(result.out, "\nnode @")) << result;
    EXPECT_NE(std::string::npos, result.err.find("XML text")) << result;
}

// ---- vocab -----------------------------------------------------------------------------------

TEST_F(QklmsgTool, VocabLooksUpBothWays) {
    const ToolRun byName = run({"vocab", "packet"});
    EXPECT_EQ(0, byName.status) << byName;
    EXPECT_NE(std::string::npos, byName.out.find("element: 1398\n")) << byName;
    const ToolRun byID = run({"vocab", "1398"});
    EXPECT_EQ(0, byID.status) << byID;
    EXPECT_NE(std::string::npos, byID.out.find("element: packet\n")) << byID;
    const ToolRun unknown = run({"vocab", "qkltool_nowhere"});
    EXPECT_EQ(1, unknown.status) << unknown;
    EXPECT_EQ(1u, lineCount(unknown.err)) << unknown;
}

// ---- refused input and output ----------------------------------------------------------------

TEST_F(QklmsgTool, ANonexistentInputIsRefusedWithOneLine) {
    const std::string missing = path("missing.xml");
    for (const char* command : {"to-xml", "inspect", "soap-to-msg", "msg-to-soap"}) {
        const ToolRun result = run({command, missing});
        EXPECT_EQ(1, result.status) << command << ": " << result;
        EXPECT_EQ(1u, lineCount(result.err)) << command << ": " << result;
        EXPECT_NE(std::string::npos, result.err.find(missing)) << command << ": " << result;
    }
}

TEST_F(QklmsgTool, BadMessageBytesAreRefusedWithOneLine) {
    ASSERT_EQ(0, run({"to-binary", writeFile("message.xml", kMessage), "-o", path("message.bin")}).status);
    const std::string document = readFile(path("message.bin"));
    const std::string inputs[] = {
        "",                                              // empty
        std::string("<packet>\0</packet>", 18),          // a zero byte inside text
        "<packet><unclosed></packet>",                   // text the reader refuses
        document.substr(0, document.size() - 1),         // a truncated document
        document + "x",                                  // bytes behind the document
        std::string(kMagic, 4),                          // a lone magic
    };
    for (const std::string& input : inputs) {
        const ToolRun result = run({"to-xml", writeFile("bad.in", input), "-o", path("out.xml")});
        EXPECT_EQ(1, result.status) << result;
        EXPECT_EQ(1u, lineCount(result.err)) << result;
        EXPECT_NE(std::string::npos, result.err.find("bad.in")) << result;
        EXPECT_FALSE(exists(path("out.xml")));
    }
}

TEST_F(QklmsgTool, AnUnwritableOutputIsRefusedAndLeavesNoFile) {
    const std::string message = writeFile("message.xml", kMessage);
    writeFile("plain-file", "x");
    ASSERT_TRUE(std::filesystem::create_directory(path("existing-dir")));
    const std::size_t filesBefore = fileCount();
    const std::string outputs[] = {path("no-such-dir/out.xml"), path("plain-file/out.xml"), path("existing-dir")};
    for (const std::string& output : outputs) {
        const ToolRun result = run({"to-xml", message, "-o", output});
        EXPECT_EQ(1, result.status) << output << ": " << result;
        EXPECT_EQ(1u, lineCount(result.err)) << output << ": " << result;
        EXPECT_NE(std::string::npos, result.err.find(output)) << output << ": " << result;
    }
    EXPECT_FALSE(exists(path("no-such-dir")));
    EXPECT_TRUE(std::filesystem::is_empty(path("existing-dir")));
    EXPECT_EQ(filesBefore, fileCount()) << "a temporary output file was left behind";
}

// The output file appears whole or not at all: a refused run keeps the old one.
TEST_F(QklmsgTool, AnOutputFileIsReplacedOnlyOnSuccess) {
    const std::string output = writeFile("out.xml", "old contents");
    const ToolRun refused = run({"to-xml", writeFile("bad.xml", "<packet>"), "-o", output});
    EXPECT_EQ(1, refused.status) << refused;
    EXPECT_EQ("old contents", readFile(output));
    const ToolRun done = run({"to-xml", writeFile("message.xml", kMessage), "-o", output});
    ASSERT_EQ(0, done.status) << done;
    EXPECT_NE(std::string::npos, readFile(output).find("<origin>client</origin>"));
    EXPECT_TRUE(done.out.empty()) << done;
}

// Hostile bytes: random, random behind the magic, and a real document with
// bytes changed. Every command must end with 0 or 1; a signal is a crash.
TEST_F(QklmsgTool, RandomBytesNeverCrashOrHang) {
    ASSERT_EQ(0, run({"to-binary", writeFile("message.xml", kMessage), "-o", path("message.bin")}).status);
    const std::string document = readFile(path("message.bin"));
    std::mt19937 random(20240501u);
    std::uniform_int_distribution<int> byte(0, 255);
    const auto randomBytes = [&](std::size_t count) {
        std::string bytes;
        for (std::size_t i = 0; i < count; ++i) bytes += char(byte(random));
        return bytes;
    };
    for (int round = 0; round < 30; ++round) {
        std::string input;
        if (round % 3 == 0) input = randomBytes(1 + random() % 512);
        if (round % 3 == 1) input = std::string(kMagic, 4) + randomBytes(4 + random() % 256);
        if (round % 3 == 2) {
            input = document;
            for (int flip = 0; flip < 3; ++flip) input[random() % input.size()] = char(byte(random));
        }
        const std::string file = writeFile("random.bin", input);
        for (const char* command : {"to-xml", "inspect", "msg-to-soap", "soap-to-msg"}) {
            const ToolRun result = run({command, file, "-o", path("out")});
            EXPECT_TRUE(result.finished) << command << " hung on round " << round;
            EXPECT_FALSE(result.signalled) << command << " crashed on round " << round << ": " << result;
            EXPECT_TRUE(result.status == 0 || result.status == 1) << command << " round " << round << ": " << result;
            if (result.status == 1) {
                EXPECT_FALSE(exists(path("out"))) << command << " round " << round;
            }
            std::filesystem::remove(path("out"));
        }
    }
}

}  // namespace

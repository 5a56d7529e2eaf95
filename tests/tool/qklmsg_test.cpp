// qklmsg run by the shell in tests/data, so that its arguments and messages
// name the data files as they stand there: the command lines of
// tests/data/tool/commands.txt with their exit status and output, and hostile
// input, which must end in 0 or 1 and never leave a partial output file.
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Files.h"

using QKLTest::readFile;

namespace {

const std::string DATA = std::string(QKL_TEST_DATA_DIR) + "/";
// A command that runs the tool, such as a memory checker (set by ./dev check); none by default.
const char* const WRAPPER_VARIABLE = std::getenv("QKL_TOOL_WRAPPER");
const std::string WRAPPER = WRAPPER_VARIABLE ? WRAPPER_VARIABLE : "";
// The hostile test's rounds, fewer when every run is slowed down by the wrapper.
const int HOSTILE_ROUNDS = WRAPPER.empty() ? 24 : 8;

struct ToolRun {
    int status;  // 124 for a hang, 128 and more for a death by a signal
    std::string out, err;
};

class Qklmsg : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/qklmsg_test_XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(pattern));
        m_dir = pattern;
        m_out = m_dir + "/out";
        ::setenv("OUT", m_out.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }

    // qklmsg `args` in tests/data, standard input from the data file `input` ("": none).
    ToolRun run(const std::string& args, const std::string& input) const {
        const std::string command = "cd '" + DATA + "' && timeout 60 " + WRAPPER + " '" QKL_TOOL_PATH "' " + args +
                                    " <" + (input.empty() ? "/dev/null" : input) + " >" + m_dir + "/.out 2>" + m_dir +
                                    "/.err";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128, readFile(m_dir + "/.out"), readFile(m_dir + "/.err")};
    }

    std::string m_dir, m_out;
};

}  // namespace

// A refusal is one line on standard error; a usage error is followed by the usage text.
TEST_F(Qklmsg, EachCommandLineGivesItsExitStatusAndOutput) {
    const std::string table = readFile(DATA + "tool/commands.txt");
    ASSERT_NE(std::string::npos, table.find("\n0 |  | demo | @tool/demo.out |"));
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        SCOPED_TRACE(line);
        std::vector<std::string> field;
        std::istringstream fields(line + " ");  // so that an empty last field counts
        for (std::string text; std::getline(fields, text, '|');) {
            text.erase(0, text.find_first_not_of(' '));
            field.push_back(text.erase(text.find_last_not_of(' ') + 1));
        }
        ASSERT_EQ(6u, field.size());
        const ToolRun result = run(field[2], field[1]);
        EXPECT_EQ(std::stoi(field[0]), result.status) << result.err;
        const std::string& out = field[3];
        EXPECT_EQ(out.empty() ? "" : out[0] == '@' ? readFile(DATA + out.substr(1)) : out + "\n", result.out);
        EXPECT_TRUE(field[4].empty() ? result.err.empty() : result.err.find(field[4]) == 0) << result.err;
        EXPECT_TRUE(result.status != 1 || std::count(result.err.begin(), result.err.end(), '\n') == 1) << result.err;
        const std::string tryHelp = "\nTry 'qklmsg --help' for more information.\n";  // a usage error's second line
        EXPECT_TRUE(result.status != 2 || (std::count(result.err.begin(), result.err.end(), '\n') == 2 &&
                                           result.err.find(tryHelp) != std::string::npos))
            << result.err;
        EXPECT_EQ(field[5].empty() ? "(none)" : readFile(DATA + field[5]),
                  std::filesystem::exists(m_out) ? readFile(m_out) : "(none)");
        std::filesystem::remove(m_out);
    }
}

// Random bytes, random bytes behind a binary document's magic, and golden
// inputs cut short or with bytes changed: every command ends in 0 or 1, and a
// refused run leaves the earlier output file as it was and no temporary file
// (none of these inputs holds a complete message before a truncated one).
TEST_F(Qklmsg, HostileInputNeverCrashesNorLeavesAPartialOutputFile) {
    const std::string golden[] = {readFile(DATA + "tool/message.bin"), readFile(DATA + "tool/reply.bin"),
                                  readFile(DATA + "soap/requests/soap12_with_packet_header.xml")};
    std::mt19937 random(20240501u);
    for (int round = 0; round < HOSTILE_ROUNDS; ++round) {
        const int kind = round % 4;
        std::string text = kind == 1 ? golden[0].substr(0, 4) + std::string(random() % 256, ' ') : golden[random() % 3];
        text.resize(kind == 0 ? 1 + random() % 512 : kind == 2 ? random() % text.size() : text.size());
        for (std::size_t at = kind == 1 ? 4 : 0; kind != 2 && at < text.size(); ++at)
            if (kind != 3 || random() % 64 == 0) text[at] = char(random());
        std::ofstream(m_dir + "/in", std::ios::binary) << text;
        for (const char* command : {"to-xml", "to-binary", "inspect", "soap-to-msg", "msg-to-soap"}) {
            SCOPED_TRACE(std::string(command) + " round " + std::to_string(round));
            std::ofstream(m_out) << "earlier output";
            const ToolRun result = run(std::string(command) + " " + m_dir + "/in -o $OUT", "");
            ASSERT_TRUE(result.status == 0 || result.status == 1) << result.status << " " << result.err;
            EXPECT_TRUE(result.status == 0 || readFile(m_out) == "earlier output");
            const std::filesystem::directory_iterator files(m_dir);
            EXPECT_EQ(4, std::distance(begin(files), end(files)));  // in, out, .out and .err: no temporary left
        }
    }
}

// qklmsg serve run as a child on a free port of 127.0.0.1 (its first line on standard error names
// it). Each NAME.request under tests/data/tool/serve/ (request line, fields, a blank line, the
// body; Host and Content-Length are added) is sent in name order on one keep-alive connection,
// opened again only after an answer that closes it; the answer as received must equal NAME.response.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include <boost/algorithm/string/replace.hpp>
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <gtest/gtest.h>

#include "support/ChildProcess.h"
#include "support/Files.h"

using QKLTest::readFile;

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;

const std::string DATA = std::string(QKL_TEST_DATA_DIR) + "/tool/serve/";
// A command that runs the tool, such as a memory checker (set by ./dev check); none by default.
const std::string TOOL = std::string(std::getenv("QKL_TOOL_WRAPPER") ? std::getenv("QKL_TOOL_WRAPPER") : "") +
                         " '" QKL_TOOL_PATH "' serve ";
const auto PATIENCE = std::chrono::seconds(30);  // only ever reached by a server that hangs

// A running `qklmsg serve`; stopped by SIGTERM (and reaped) at the end of the test at the latest.
struct Server {
    explicit Server(const std::string& options) {
        int err[2];
        if (::pipe(err) != 0 || (pid = ::fork()) < 0) return;
        if (pid == 0) {
            ::dup2(err[1], STDERR_FILENO);
            const std::string command = "exec " + TOOL + "--listen 127.0.0.1:0 --threads 2 " + options;
            ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(err[1]);
        this->err = err[0];
        std::sscanf(line().c_str(), "qklmsg serve: listening on 127.0.0.1:%d", &port);
    }
    ~Server() {
        if (pid > 0) stop();
        ::close(err);
    }
    // The next line of its standard error, a memory checker's own lines ("--", "==") passed over; "" at its end.
    std::string line() const {
        std::string text;
        pollfd readable{err, POLLIN, 0};
        for (char c = 0; ::poll(&readable, 1, 30000) > 0 && ::read(err, &c, 1) == 1 && c != '\n';) text += c;
        return text.compare(0, 2, "--") == 0 || text.compare(0, 2, "==") == 0 ? line() : text;
    }
    QKLTest::ChildEnd stop() {
        ::kill(pid, SIGTERM);
        return QKLTest::watchChild(std::exchange(pid, -1), PATIENCE);
    }
    // The processes it has started and not reaped (zombies included), by the threads that started them.
    std::string children() const {
        std::string pids;
        for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
            pids += readFile(task.path().string() + "/children");
        return pids;
    }
    int pid = -1, port = 0, err = -1;
};

// One connection; every wait ends at the latest after PATIENCE.
class Client {
public:
    explicit Client(int port) {
        const asio::ip::tcp::endpoint server(asio::ip::make_address("127.0.0.1"), static_cast<unsigned short>(port));
        run([&](auto done) { m_stream.async_connect(server, done); });
    }
    void send(const std::string& request) {
        const std::size_t blank = request.find("\n\n");
        const std::string head = boost::replace_all_copy(request.substr(0, blank), "\n", "\r\n");
        const std::string body = request.substr(blank + 2);
        m_sent = head + "\r\nHost: 127.0.0.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        run([&](auto done) { asio::async_write(m_stream, asio::buffer(m_sent), done); });
    }
    // The answer as received, interim ones (100 Continue) first; `open`: the connection stays.
    std::string receive(bool& open) {
        http::response<http::string_body> answer;
        if (!run([&](auto done) { http::async_read(m_stream, m_buffer, answer, done); })) return "(none)";
        std::string text = "HTTP/1.1 " + std::to_string(answer.result_int()) + " " + answer.reason().to_string() + "\n";
        for (const auto& field : answer)
            text += field.name_string().to_string() + ": " + field.value().to_string() + "\n";
        text += "\n" + answer.body();
        open = answer.keep_alive();
        return answer.result() == http::status::continue_ ? text + receive(open) : text;
    }

private:
    template <class Start> bool run(Start start) {
        boost::beast::error_code failure;
        m_stream.expires_after(PATIENCE);
        start([&](boost::beast::error_code ec, auto&&...) { failure = ec; });
        m_io.restart();
        m_io.run();
        EXPECT_FALSE(failure) << failure.message();
        return !failure;
    }
    asio::io_context m_io;
    boost::beast::tcp_stream m_stream{m_io};
    boost::beast::flat_buffer m_buffer;
    std::string m_sent;
};

void walk(const Server& server, const std::string& folder) {
    std::set<std::filesystem::path> requests;  // in name order
    for (const auto& entry : std::filesystem::directory_iterator(DATA + folder))
        if (entry.path().extension() == ".request") requests.insert(entry.path());
    ASSERT_GE(requests.size(), 5u);
    std::unique_ptr<Client> client;
    for (std::filesystem::path request : requests) {
        SCOPED_TRACE(request.filename().string());
        if (!client) client = std::make_unique<Client>(server.port);
        client->send(readFile(request.string()));
        bool open = false;
        EXPECT_EQ(readFile(request.replace_extension(".response").string()), client->receive(open));
        if (!open) client.reset();
    }
}

}  // namespace

// The demo operator, converter faults, refusals by method, type and size, the WSDL, keep-alive.
TEST(Serve, EachRequestGetsItsGoldenAnswerOnOneKeepAliveConnection) {
    Server server("--max-request 2048 --wsdl '" + DATA + "demo.wsdl'");
    walk(server, "builtin");
    for (int request = 1; request < 4; ++request) server.line();
    const std::string malformed = server.line();  // 04: the reader's reason beside the request line
    EXPECT_EQ(0u, malformed.find("qklmsg serve: POST /env_manager 500 ")) << malformed;
    EXPECT_NE(std::string::npos, malformed.find(" us: the XML reader refused the converted text at line 1, column "
                                                "143: end tag </GetList> does not match <scope>"))
        << malformed;
    EXPECT_EQ(QKLTest::ChildEnd::Returned, server.stop());
}

// An external operator, with the bridge in strict mode: it answers from standard input, or fails by
// error elements, exit status, timeout (its process group killed and reaped) or output that is no
// element. Then SIGTERM while it runs: the request in flight is answered, an idle connection
// closed, the exit status is 0.
TEST(Serve, StrictExternalOperatorAnswersOrFailsWithItsReasonAndSigtermLetsItFinish) {
    Server server("--strict --operator 'sh \"" + DATA + "operator.sh\"' --operator-timeout 1");
    walk(server, "operator");
    EXPECT_EQ("", server.children());
    for (const char* status : {"200", "500", "500", "500", "500", "200", "200"})  // one log line per request
        EXPECT_EQ(0u, server.line().find(std::string("qklmsg serve: POST / ") + status + " ")) << status;
    Client idle(server.port), busy(server.port);
    busy.send(readFile(DATA + "inflight.request"));
    EXPECT_EQ("operator: in flight", server.line());
    ::kill(server.pid, SIGTERM);
    bool open = true;
    EXPECT_EQ(readFile(DATA + "inflight.response"), busy.receive(open));
    EXPECT_EQ(QKLTest::ChildEnd::Returned, server.stop());
}

// Out-of-range options are usage errors (2); an unreadable WSDL or an address that cannot be bound
// is refused (1), before anything is served.
TEST(Serve, BadOptionsEndTheCommandBeforeServing) {
    const std::pair<int, const char*> rows[] = {{2, "--threads 0"}, {2, "--max-request 1k"}, {2, "--listen 127.0.0.1"},
        {2, "--listen 127.0.0.1:65536"}, {2, "--operator-timeout 0"}, {2, "extra"},
        {1, "--wsdl /nonexistent/demo.wsdl"}, {1, "--listen 192.0.2.1:0"}};
    for (const auto& row : rows) {
        const int status = std::system(("timeout 60 " + TOOL + row.second + " 2>/dev/null").c_str());
        EXPECT_EQ(row.first, WIFEXITED(status) ? WEXITSTATUS(status) : -1) << row.second;
    }
}

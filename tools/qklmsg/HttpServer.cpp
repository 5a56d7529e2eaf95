#include "HttpServer.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace qklmsg {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;

const char* const LOG_PREFIX = "qklmsg serve: ";
// How long a connection may take to send a request or read an answer, idle keep-alive included.
const auto IO_TIMEOUT = std::chrono::seconds(60);
// How long a refused request's remaining bytes are read away before the connection closes, so
// that the client reads the refusal instead of a reset.
const auto DRAIN_TIMEOUT = std::chrono::seconds(2);
// A failed accept (out of descriptors) is tried again after this pause, not in a busy loop.
const auto ACCEPT_RETRY = std::chrono::milliseconds(100);

void logLine(const std::string& text) {
    const std::string line = LOG_PREFIX + text + "\n";
    std::fputs(line.c_str(), stderr);
}

// A request's method or target for the log; "-" for one that never arrived whole.
std::string orDash(beast::string_view text) { return text.empty() ? "-" : std::string(text); }

class Session;

// The listening socket, the signals, the live connections and the stopping flag.
class Server {
public:
    Server(const ListenSettings& settings, const RequestHandler& handle)
        : settings(settings), handle(handle), m_io(int(settings.threads)), m_strand(asio::make_strand(m_io)),
          m_acceptor(m_strand), m_signals(m_strand, SIGINT, SIGTERM), m_retry(m_strand) {}

    bool listen(std::string& error);
    void run();
    bool stopping() const { return m_stopping; }
    // A session enters the registry when it starts and leaves it when destroyed.
    std::list<std::weak_ptr<Session>>::iterator enter(const std::shared_ptr<Session>& session);
    void leave(std::list<std::weak_ptr<Session>>::iterator at);

    const ListenSettings settings;
    const RequestHandler handle;

private:
    void accept();
    void stop(int signal);

    asio::io_context m_io;
    asio::strand<asio::io_context::executor_type> m_strand;  // the acceptor's and the signals'
    tcp::acceptor m_acceptor;
    asio::signal_set m_signals;
    asio::steady_timer m_retry;
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::list<std::weak_ptr<Session>> m_sessions;
};

// One connection: requests read and answered one after the other on the connection's strand.
class Session : public std::enable_shared_from_this<Session> {
public:
    Session(tcp::socket&& socket, Server& server) : m_stream(std::move(socket)), m_server(server) {}
    ~Session() { m_server.leave(m_entry); }

    void start() {
        m_entry = m_server.enter(shared_from_this());
        asio::dispatch(m_stream.get_executor(), [self = shared_from_this()] { self->readHeader(); });
    }

    // Closes the connection if it waits for a request; one in flight is answered first.
    void stop() {
        asio::post(m_stream.get_executor(), [self = shared_from_this()] {
            if (self->m_waiting) self->m_stream.cancel();
        });
    }

private:
    void readHeader() {
        if (m_server.stopping()) return close();
        m_parser.emplace();
        m_parser->body_limit(m_server.settings.maxRequestBytes);
        m_waiting = true;
        m_stream.expires_after(IO_TIMEOUT);
        http::async_read_header(m_stream, m_buffer, *m_parser,
                                [self = shared_from_this()](beast::error_code ec, std::size_t) { self->onHeader(ec); });
    }

    void onHeader(beast::error_code ec) {
        m_waiting = false;
        m_started = Clock::now();
        if (ec) return refuseOrClose(ec);
        const auto& request = m_parser->get();
        if (!beast::iequals(request[http::field::expect], "100-continue")) return readBody();
        m_continue.emplace(http::status::continue_, request.version());
        http::async_write(m_stream, *m_continue, [self = shared_from_this()](beast::error_code ec, std::size_t) {
            if (ec) return self->close();
            self->readBody();
        });
    }

    void readBody() {
        http::async_read(m_stream, m_buffer, *m_parser,
                         [self = shared_from_this()](beast::error_code ec, std::size_t) { self->onBody(ec); });
    }

    void onBody(beast::error_code ec) {
        if (ec) return refuseOrClose(ec);
        const auto& request = m_parser->get();
        const HttpAsk ask{std::string(request.method_string()), std::string(request.target()),
                          std::string(request[http::field::content_type]), request.body()};
        HttpAnswer answer;
        try {
            answer = m_server.handle(ask);
        } catch (const std::exception& e) {
            answer = plainAnswer(500, std::string("internal error: ") + e.what());
        }
        respond(std::move(answer), request.keep_alive() && !m_server.stopping());
    }

    // A request over the limit gets 413, a malformed one 400; a connection
    // that ends (or times out) between requests just closes.
    void refuseOrClose(beast::error_code ec) {
        m_unread = true;
        if (ec == http::error::body_limit)
            return respond(plainAnswer(413, "request body larger than " +
                                                std::to_string(m_server.settings.maxRequestBytes) +
                                                " bytes (--max-request)"),
                           false);
        if (!m_parser->got_some() || ec == http::error::end_of_stream || ec == asio::error::operation_aborted ||
            ec == beast::error::timeout)
            return close();
        respond(plainAnswer(400, "bad request: " + ec.message()), false);
    }

    void respond(HttpAnswer answer, bool keepAlive) {
        const auto& request = m_parser->get();
        m_response.emplace(http::status(answer.status), request.version() ? request.version() : 11);
        m_response->set(http::field::content_type, answer.contentType);
        if (!answer.allow.empty()) m_response->set(http::field::allow, answer.allow);
        m_reason = std::move(answer.reason);
        m_response->keep_alive(keepAlive);
        m_response->body() = std::move(answer.body);
        m_response->prepare_payload();
        m_stream.expires_after(IO_TIMEOUT);
        http::async_write(m_stream, *m_response, [self = shared_from_this()](beast::error_code ec, std::size_t) {
            self->onWritten(ec);
        });
    }

    void onWritten(beast::error_code ec) {
        const auto& request = m_parser->get();
        const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_started).count();
        logLine(orDash(request.method_string()) + " " + orDash(request.target()) + " " +
                std::to_string(m_response->result_int()) + " " + std::to_string(m_response->body().size()) +
                " bytes " + std::to_string(micros) + " us" + (ec ? " (not sent: " + ec.message() + ")" : "") +
                (m_reason.empty() ? "" : ": " + m_reason));
        if (ec) return close();
        if (m_response->keep_alive()) return readHeader();
        if (!m_unread) return close();
        // What the client still sends of a refused request is read away, so
        // that it reads the refusal rather than a connection reset.
        beast::error_code ignored;
        m_stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
        m_stream.expires_after(DRAIN_TIMEOUT);
        drain();
    }

    void drain() {
        m_stream.async_read_some(asio::buffer(m_drained),
                                 [self = shared_from_this()](beast::error_code ec, std::size_t) {
                                     if (ec) return self->close();
                                     self->drain();
                                 });
    }

    void close() {
        beast::error_code ignored;
        m_stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
        m_stream.close();
    }

    beast::tcp_stream m_stream;
    Server& m_server;
    std::list<std::weak_ptr<Session>>::iterator m_entry;
    beast::flat_buffer m_buffer;
    std::optional<http::request_parser<http::string_body>> m_parser;
    std::optional<http::response<http::empty_body>> m_continue;
    std::optional<http::response<http::string_body>> m_response;
    std::array<char, 4096> m_drained;
    bool m_waiting = false;  // for the next request, nothing of it in flight
    bool m_unread = false;   // a refused request's bytes may still be coming
    std::string m_reason;    // the answer's reason, for the log line
    Clock::time_point m_started;
};

std::list<std::weak_ptr<Session>>::iterator Server::enter(const std::shared_ptr<Session>& session) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sessions.insert(m_sessions.end(), session);
}

void Server::leave(std::list<std::weak_ptr<Session>>::iterator at) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sessions.erase(at);
}

std::string endpointText(const tcp::endpoint& endpoint) {
    const std::string address = endpoint.address().to_string();
    const bool v6 = endpoint.address().is_v6();
    return (v6 ? "[" + address + "]" : address) + ":" + std::to_string(endpoint.port());
}

bool Server::listen(std::string& error) {
    beast::error_code ec;
    const tcp::endpoint endpoint(asio::ip::make_address(settings.address, ec), settings.port);
    if (!ec) m_acceptor.open(endpoint.protocol(), ec);
    if (!ec) m_acceptor.set_option(asio::socket_base::reuse_address(true), ec);
    if (!ec) m_acceptor.bind(endpoint, ec);
    if (!ec) m_acceptor.listen(asio::socket_base::max_listen_connections, ec);
    if (ec) {
        error = "cannot listen on " + settings.address + ":" + std::to_string(settings.port) + ": " + ec.message();
        return false;
    }
    logLine("listening on " + endpointText(m_acceptor.local_endpoint(ec)));
    return true;
}

void Server::accept() {
    m_acceptor.async_accept(asio::make_strand(m_io), [this](beast::error_code ec, tcp::socket socket) {
        if (m_stopping) return;
        if (!ec) {
            std::make_shared<Session>(std::move(socket), *this)->start();
            return accept();
        }
        logLine("accept failed: " + ec.message());
        m_retry.expires_after(ACCEPT_RETRY);
        m_retry.async_wait([this](beast::error_code) {
            if (!m_stopping) accept();
        });
    });
}

void Server::stop(int signal) {
    m_stopping = true;
    logLine("stopping on signal " + std::to_string(signal) + ": answering the requests in flight");
    beast::error_code ignored;
    m_acceptor.close(ignored);
    m_retry.cancel();
    std::vector<std::shared_ptr<Session>> live;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& session : m_sessions)
            if (auto held = session.lock()) live.push_back(std::move(held));
    }
    for (const auto& session : live) session->stop();
}

void Server::run() {
    m_signals.async_wait([this](beast::error_code ec, int signal) {
        if (!ec) stop(signal);
    });
    asio::dispatch(m_strand, [this] { accept(); });
    std::vector<std::thread> helpers;
    for (unsigned i = 1; i < settings.threads; ++i) helpers.emplace_back([this] { m_io.run(); });
    m_io.run();
    for (std::thread& helper : helpers) helper.join();
    // Stopped and drained: a later SIGINT or SIGTERM (a second one from an impatient supervisor)
    // must not end the way out by the default action, so they are ignored from here to the exit.
    beast::error_code ignored;
    m_signals.clear(ignored);
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, SIG_IGN);
}

}  // namespace

bool serveHttp(const ListenSettings& settings, const RequestHandler& handle, std::string& error) {
    Server server(settings, handle);
    if (!server.listen(error)) return false;
    server.run();
    return true;
}

}  // namespace qklmsg

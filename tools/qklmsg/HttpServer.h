// qklmsg serve's HTTP/1.1 transport, on Boost.Beast over Boost.Asio: accepts
// connections, reads requests (keep-alive, "Expect: 100-continue", bodies
// beyond the limit refused with 413), hands each whole request to a handler,
// writes its answer, and logs one line per request on standard error.
// SIGINT and SIGTERM stop it: no new connection is accepted, idle connections
// are closed, the requests in flight are answered, then serveHttp returns.
#ifndef QKLMSG_HTTPSERVER_H
#define QKLMSG_HTTPSERVER_H

#include <cstddef>
#include <functional>
#include <string>

#include "SoapService.h"

namespace qklmsg {

struct ListenSettings {
    std::string address;  // an IPv4 or IPv6 address, without brackets
    unsigned short port;  // 0: any free port
    unsigned threads;     // the threads that serve connections, at least 1
    std::size_t maxRequestBytes;
};

using RequestHandler = std::function<HttpAnswer(const HttpAsk&)>;

// Listens, prints "qklmsg serve: listening on ADDR:PORT" (the port really
// bound) on standard error and serves until a signal has stopped it: true.
// False with the reason in `error` when it cannot listen. `handle` is called
// on several threads at once.
bool serveHttp(const ListenSettings& settings, const RequestHandler& handle, std::string& error);

}  // namespace qklmsg

#endif

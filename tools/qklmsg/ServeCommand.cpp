// qklmsg serve: SOAP over HTTP. Reads and checks the options, then runs the
// HTTP server (HttpServer.h) with the SOAP service (SoapService.h) as its
// handler until SIGINT or SIGTERM.
#include <csignal>
#include <cstdlib>
#include <thread>

#include "Commands.h"
#include "HttpServer.h"
#include "SoapService.h"
#include "ToolIO.h"

namespace qklmsg {

namespace {

const char* const WHERE = "serve";
const char* const DEFAULT_LISTEN = "127.0.0.1:8080";
const unsigned long DEFAULT_MAX_REQUEST_BYTES = 1ul << 20;
const unsigned long DEFAULT_OPERATOR_TIMEOUT_SECONDS = 10;
// Bounds that keep a typing slip from asking for absurd resources.
const unsigned long MAX_THREADS = 1024;
const unsigned long MAX_OPERATOR_TIMEOUT_SECONDS = 24ul * 60 * 60;
const unsigned long MAX_REQUEST_BYTES_LIMIT = 1ul << 30;

// A whole decimal number in [low, high] (an empty word gives `fallback`); false otherwise.
bool numberOption(const std::string& word, unsigned long fallback, unsigned long low, unsigned long high,
                  unsigned long& value) {
    if (word.empty()) {
        value = fallback;
        return true;
    }
    if (word.find_first_not_of("0123456789") != std::string::npos || word.size() > 10) return false;
    value = std::strtoul(word.c_str(), nullptr, 10);
    return value >= low && value <= high;
}

// ADDR:PORT, with an IPv6 address in brackets ([::1]:8080).
bool listenOption(const std::string& word, ListenSettings& settings) {
    const std::size_t colon = word.rfind(':');
    unsigned long port = 0;
    if (colon == std::string::npos || colon + 1 == word.size() ||
        !numberOption(word.substr(colon + 1), 0, 0, 65535, port))
        return false;
    std::string address = word.substr(0, colon);
    if (address.size() >= 2 && address.front() == '[' && address.back() == ']')
        address = address.substr(1, address.size() - 2);
    settings.address = address;
    settings.port = static_cast<unsigned short>(port);
    return !address.empty();
}

unsigned defaultThreads() {
    const unsigned cores = std::thread::hardware_concurrency();
    return cores == 0 ? 1 : cores;
}

}  // namespace

int runServe(const CommandLine& line) {
    const ServeWords& words = line.serve;
    ListenSettings listen{};
    unsigned long threads = 0, maxRequest = 0, timeout = 0;
    if (!listenOption(words.listen.empty() ? DEFAULT_LISTEN : words.listen, listen))
        return usageError("--listen takes ADDR:PORT, such as 127.0.0.1:8080 or [::1]:0");
    if (!numberOption(words.threads, defaultThreads(), 1, MAX_THREADS, threads))
        return usageError("--threads takes a number from 1 to " + std::to_string(MAX_THREADS));
    if (!numberOption(words.maxRequest, DEFAULT_MAX_REQUEST_BYTES, 1, MAX_REQUEST_BYTES_LIMIT, maxRequest))
        return usageError("--max-request takes a number of bytes from 1 to " + std::to_string(MAX_REQUEST_BYTES_LIMIT));
    if (!numberOption(words.operatorTimeout, DEFAULT_OPERATOR_TIMEOUT_SECONDS, 1, MAX_OPERATOR_TIMEOUT_SECONDS,
                      timeout))
        return usageError("--operator-timeout takes a number of seconds from 1 to " +
                          std::to_string(MAX_OPERATOR_TIMEOUT_SECONDS));
    listen.threads = unsigned(threads);
    listen.maxRequestBytes = maxRequest;

    ServiceSettings service;
    service.operatorCommand = words.operatorCommand;
    service.operatorTimeoutSeconds = int(timeout);
    service.strict = line.strict;
    if (line.optionsGiven & OPTION_WSDL) {
        Input wsdl;
        if (!readInput(words.wsdl, wsdl)) return EXIT_REFUSED;
        service.haveWsdl = true;
        service.wsdl = wsdl.bytes;
    }
    const SoapService soap(service);
    // Operators are reaped one by one; a SIGCHLD ignored by whoever started
    // qklmsg would have the kernel reap them first and hide their exit status.
    std::signal(SIGCHLD, SIG_DFL);
    std::string error;
    if (!serveHttp(listen, [&soap](const HttpAsk& ask) { return soap.answer(ask); }, error))
        return refuse(WHERE, error);
    return EXIT_DONE;
}

}  // namespace qklmsg

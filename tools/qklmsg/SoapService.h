// What qklmsg serve answers to one HTTP request, apart from the transport
// (HttpServer.h): POSTed SOAP 1.1 (text/xml) and SOAP 1.2
// (application/soap+xml) calls go through the library's SOAP bridge and an
// operator; GET with "?wsdl" serves the WSDL file. Every SOAP failure is a
// fault envelope with status 500, in the request's SOAP version; refusals made
// before a SOAP version is known (method, content type) are one plain line.
#ifndef QKLMSG_SOAPSERVICE_H
#define QKLMSG_SOAPSERVICE_H

#include <string>

namespace qklmsg {

struct HttpAsk {
    std::string method;       // "POST"
    std::string target;       // "/path?query"
    std::string contentType;  // the Content-Type field as sent, parameters included
    std::string body;
};

struct HttpAnswer {
    unsigned status = 200;
    std::string contentType;
    std::string body;
    std::string allow;  // the Allow field of a 405, else empty
    std::string reason;  // for the log line only: why the XML reader refused the request, else empty
};

// A plain-text answer: one line, for the refusals made before any SOAP version is known.
HttpAnswer plainAnswer(unsigned status, const std::string& line);

struct ServiceSettings {
    std::string operatorCommand;  // empty: the built-in demo operator (DemoOperator.h)
    int operatorTimeoutSeconds = 10;
    bool haveWsdl = false;
    std::string wsdl;             // the WSDL file's text
    bool strict = false;          // the bridge's strict forms (QKLSoapConverter::setStrict)
};

class SoapService {
public:
    explicit SoapService(const ServiceSettings& settings) : m_settings(settings) {}

    // The answer to one request. Every call has its own converter and
    // messages, so several threads may call it at once.
    HttpAnswer answer(const HttpAsk& ask) const;

private:
    const ServiceSettings m_settings;
};

}  // namespace qklmsg

#endif

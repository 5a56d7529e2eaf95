// qklmsg: the command-line tool of the library.
//
//   qklmsg --help | -h | --version            this usage text, or the library's version (exit 0)
//   qklmsg demo                               the SOAP round trip on built-in data, every stage printed
//   qklmsg to-xml IN [-o OUT]                 message -> XML text (toText)
//   qklmsg to-binary IN [-o OUT]              message -> binary document (serialize)
//   qklmsg soap-to-msg IN [-b] [--strict] [-o OUT]
//                                             SOAP request -> message as XML text (-b: binary); on
//                                             failure the SOAP fault envelope goes to standard output
//   qklmsg msg-to-soap IN [--soap 1.1|1.2] [--strict] [-o OUT]
//                                             reply message -> SOAP response or fault envelope
//                                             (--strict: the converter's strict mode)
//   qklmsg inspect IN [-o OUT]                a binary document's nodes, one line each, then its map
//                                             entries (XML text is read into a binary document first)
//   qklmsg vocab NAME|ID                      element, namespace and type vocabulary look-up, both ways
//                                             (a name or ID in no vocabulary is refused: exit 1)
//   qklmsg vocab --list [elements|namespaces|types]
//                                             "ID name" per line in ID order; all three, each under a
//                                             header line, when no kind is given
//   qklmsg serve [--listen ADDR:PORT] [--operator CMD] [--operator-timeout SECONDS] [--wsdl FILE]
//                [--strict] [--max-request BYTES] [--threads N]
//                                             SOAP over HTTP until SIGINT or SIGTERM (exit 0)
//
// IN is a path or "-" for standard input; a message on input may be a binary
// document or XML text, told apart as the library does. to-xml, to-binary and
// inspect take every message of IN in turn, as a transport receives them back
// to back (XML text ended by a zero byte or the end of input). Output goes to
// standard output, or with -o to a file that appears only whole: nothing when
// a message is refused, but the complete messages before a truncated last one
// are written, to OUT too, before that one is refused. Exit status: 0 done,
// 1 input refused (one line on standard error says what and where), 2 usage.
#include <csignal>
#include <cstdio>
#include <string>

#include "Commands.h"
#include "ToolIO.h"

namespace qklmsg {

namespace {

const char USAGE[] =
    "usage: qklmsg demo\n"
    "       qklmsg to-xml IN [-o OUT]\n"
    "       qklmsg to-binary IN [-o OUT]\n"
    "       qklmsg soap-to-msg IN [-b] [--strict] [-o OUT]\n"
    "       qklmsg msg-to-soap IN [--soap 1.1|1.2] [--strict] [-o OUT]\n"
    "       qklmsg inspect IN [-o OUT]\n"
    "       qklmsg vocab NAME|ID\n"
    "       qklmsg vocab --list [elements|namespaces|types]\n"
    "       qklmsg serve [--listen ADDR:PORT] [--operator CMD] [--operator-timeout SECONDS]\n"
    "                    [--wsdl FILE] [--strict] [--max-request BYTES] [--threads N]\n"
    "       qklmsg --help | -h | --version\n"
    "IN is a file or - for standard input: a binary document or XML text (a SOAP request for\n"
    "soap-to-msg). Output goes to standard output, or whole to OUT with -o. Binary output\n"
    "(to-binary, soap-to-msg -b) is not written to a terminal. inspect reads XML text into a\n"
    "binary document first and says so on standard error. msg-to-soap answers in SOAP 1.1\n"
    "unless --soap 1.2 is given. --strict converts in the SOAP bridge's strict mode.\n"
    "to-xml, to-binary and inspect handle every message of IN in turn: binary documents and\n"
    "XML texts ended by a zero byte, back to back. A truncated last message is refused after\n"
    "the output of the complete ones before it is written (to OUT too).\n"
    "serve answers SOAP 1.1 and 1.2 calls over HTTP (default 127.0.0.1:8080, port 0: any free one)\n"
    "with the built-in demo operator, or runs CMD with /bin/sh per request: the request message as\n"
    "XML text on its standard input, its answer (the operator element) on its standard output.\n"
    "vocab refuses a name or ID that is in no vocabulary. vocab --list prints \"ID name\", one\n"
    "per line in ID order, of one vocabulary, or of all three each under a line \"elements:\",\n"
    "\"namespaces:\" or \"types:\". inspect shows each node's value after its sizes: texts\n"
    "quoted with \\\" \\\\ \\n \\t \\xHH escapes, numbers and times as in XML text, base64 as\n"
    "its text; a value past 64 bytes is cut and its length shown. --help prints this text,\n"
    "--version the library's version.\n"
    "Exit status: 0 done, 1 input refused (the reason on standard error), 2 usage.\n";

struct CommandEntry {
    const char* name;
    std::size_t operands;  // exactly this many
    unsigned options;      // the Option bits accepted
    int (*run)(const CommandLine&);
};

const CommandEntry COMMANDS[] = {
    {"demo", 0, 0, runDemo},
    {"to-xml", 1, OPTION_OUTPUT, runToXml},
    {"to-binary", 1, OPTION_OUTPUT, runToBinary},
    {"soap-to-msg", 1, OPTION_OUTPUT | OPTION_BINARY | OPTION_STRICT, runSoapToMsg},
    {"msg-to-soap", 1, OPTION_OUTPUT | OPTION_SOAP | OPTION_STRICT, runMsgToSoap},
    {"inspect", 1, OPTION_OUTPUT, runInspect},
    {"vocab", 1, OPTION_LIST, runVocab},
    {"serve", 0,
     OPTION_LISTEN | OPTION_OPERATOR | OPTION_OPERATOR_TIMEOUT | OPTION_WSDL | OPTION_STRICT | OPTION_MAX_REQUEST |
         OPTION_THREADS,
     runServe},
};

const CommandEntry* findCommand(const std::string& name) {
    for (const CommandEntry& entry : COMMANDS)
        if (name == entry.name) return &entry;
    return nullptr;
}

// The reason the command line does not fit the command's entry, or "".
// --list makes vocab's one operand optional.
std::string misfit(const CommandEntry& entry, const CommandLine& line) {
    const bool fewerListed = line.list && line.operands.size() < entry.operands;
    if (line.operands.size() != entry.operands && !fewerListed)
        return line.command + " takes " + std::to_string(entry.operands) + " operand(s), not " +
               std::to_string(line.operands.size());
    if (line.optionsGiven & ~entry.options) return line.command + " does not take that option";
    return std::string();
}

// --help / -h and --version, alone on the command line: the answer on standard output, exit 0.
bool answersAlone(int argc, char** argv) {
    if (argc != 2) return false;
    const std::string word = argv[1];
    if (word == "--help" || word == "-h") {
        std::fputs(USAGE, stdout);
    } else if (word == "--version") {
        std::printf("qklmsg %s\n", QKLMSG_VERSION);
    } else {
        return false;
    }
    return true;
}

int dispatch(int argc, char** argv) {
    if (answersAlone(argc, argv)) return flushStandardOutput() ? EXIT_DONE : EXIT_REFUSED;
    CommandLine line;
    std::string error;
    if (!parseCommandLine(argc, argv, line, error)) return usageError(error);
    const CommandEntry* entry = findCommand(line.command);
    if (entry == nullptr) return usageError("unknown command \"" + line.command + "\"");
    const std::string why = misfit(*entry, line);
    if (!why.empty()) return usageError(why);
    return entry->run(line);
}

}  // namespace

// Two lines, as other command-line tools answer: the reason, and where the usage text is.
int usageError(const std::string& why) {
    std::fprintf(stderr, "qklmsg: %s\nTry 'qklmsg --help' for more information.\n", why.c_str());
    return EXIT_USAGE;
}

}  // namespace qklmsg

int main(int argc, char** argv) {
    // A reader that goes away early is a write error to report, not a death by SIGPIPE.
    std::signal(SIGPIPE, SIG_IGN);
    // The factory registry that kindOf asks is filled only when the default
    // factory is first made; before that it claims no bytes at all.
    if (!QKL::QKLMessage::getFactory()) return qklmsg::refuse("library", "no message factory");
    return qklmsg::dispatch(argc, argv);
}

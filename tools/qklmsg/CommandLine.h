// The parsed command line: a command word, its operands and the options
// (-o FILE, -b, --soap 1.1|1.2, --strict, vocab's --list and serve's), in any order after the
// command word.
// Which command accepts which options and how many operands is the
// dispatch table's business (main.cpp); this only reads the words.
#ifndef QKLMSG_COMMANDLINE_H
#define QKLMSG_COMMANDLINE_H

#include <string>
#include <vector>

#include "qkl/QKL.h"

namespace qklmsg {

// The options, as bits, so a command can list the ones it accepts.
enum Option : unsigned {
    OPTION_OUTPUT = 1u,
    OPTION_BINARY = 2u,
    OPTION_SOAP = 4u,
    OPTION_STRICT = 8u,
    OPTION_LISTEN = 16u,
    OPTION_OPERATOR = 32u,
    OPTION_OPERATOR_TIMEOUT = 64u,
    OPTION_WSDL = 128u,
    OPTION_MAX_REQUEST = 256u,
    OPTION_THREADS = 512u,
    OPTION_LIST = 1024u,
};

// serve's options, as given; ServeCommand.cpp reads and checks their values.
struct ServeWords {
    std::string listen;           // --listen ADDR:PORT
    std::string operatorCommand;  // --operator CMD
    std::string operatorTimeout;  // --operator-timeout SECONDS
    std::string wsdl;             // --wsdl FILE
    std::string maxRequest;       // --max-request BYTES
    std::string threads;          // --threads N
};

struct CommandLine {
    std::string command;
    std::vector<std::string> operands;  // "-" stands for standard input
    std::string output;                 // -o FILE; empty: standard output
    bool binary = false;                // -b
    QKL::SoapVersion soapVersion = QKL::SOAP_1_1;  // --soap
    bool strict = false;                // --strict
    bool list = false;                  // --list (vocab)
    ServeWords serve;
    unsigned optionsGiven = 0;          // Option bits seen
};

// Reads argv into `line`; false with the reason in `error` for a word that is
// no option, an option given twice or lacking its value, or a bad SOAP version.
bool parseCommandLine(int argc, char** argv, CommandLine& line, std::string& error);

}  // namespace qklmsg

#endif

#include "CommandLine.h"

#include <cstring>
#include <utility>

namespace qklmsg {

namespace {

const char* const SOAP_FLAG = "--soap";

// The options that stand alone: a flag word and the field it sets.
struct FlagOption {
    const char* word;
    Option bit;
    bool CommandLine::*field;
};
const FlagOption FLAG_OPTIONS[] = {{"-b", OPTION_BINARY, &CommandLine::binary},
                                   {"--strict", OPTION_STRICT, &CommandLine::strict},
                                   {"--list", OPTION_LIST, &CommandLine::list}};

// The options followed by a value word, kept as given: a word and its field.
struct ValueOption {
    const char* word;
    Option bit;
    std::string* (*field)(CommandLine&);
};
const ValueOption VALUE_OPTIONS[] = {
    {"-o", OPTION_OUTPUT, [](CommandLine& l) { return &l.output; }},
    {"--listen", OPTION_LISTEN, [](CommandLine& l) { return &l.serve.listen; }},
    {"--operator", OPTION_OPERATOR, [](CommandLine& l) { return &l.serve.operatorCommand; }},
    {"--operator-timeout", OPTION_OPERATOR_TIMEOUT, [](CommandLine& l) { return &l.serve.operatorTimeout; }},
    {"--wsdl", OPTION_WSDL, [](CommandLine& l) { return &l.serve.wsdl; }},
    {"--max-request", OPTION_MAX_REQUEST, [](CommandLine& l) { return &l.serve.maxRequest; }},
    {"--threads", OPTION_THREADS, [](CommandLine& l) { return &l.serve.threads; }},
};

// A lone "-" is an operand (standard input), not an option.
bool looksLikeOption(const char* word) { return word[0] == '-' && word[1] != '\0'; }

const std::pair<const char*, QKL::SoapVersion> SOAP_VERSIONS[] = {{"1.1", QKL::SOAP_1_1}, {"1.2", QKL::SOAP_1_2}};

bool soapVersionOf(const std::string& text, QKL::SoapVersion& version) {
    for (const auto& known : SOAP_VERSIONS) {
        if (text != known.first) continue;
        version = known.second;
        return true;
    }
    return false;
}

// Records the option bit; false when it was given before.
bool markOption(CommandLine& line, Option option, const char* flag, std::string& error) {
    if (line.optionsGiven & option) {
        error = std::string(flag) + " given twice";
        return false;
    }
    line.optionsGiven |= option;
    return true;
}

// The value word behind an option, advancing `at`; false when there is none.
bool optionValue(int argc, char** argv, int& at, std::string& value, std::string& error) {
    if (at + 1 >= argc || argv[at + 1][0] == '\0') {
        error = std::string(argv[at]) + " needs a value";
        return false;
    }
    value = argv[++at];
    return true;
}

// One option word at argv[at] (and its value); false with the reason.
bool parseOption(int argc, char** argv, int& at, CommandLine& line, std::string& error) {
    const char* word = argv[at];
    for (const FlagOption& flag : FLAG_OPTIONS) {
        if (std::strcmp(word, flag.word) != 0) continue;
        line.*flag.field = true;
        return markOption(line, flag.bit, word, error);
    }
    for (const ValueOption& option : VALUE_OPTIONS)
        if (std::strcmp(word, option.word) == 0)
            return markOption(line, option.bit, word, error) &&
                   optionValue(argc, argv, at, *option.field(line), error);
    if (std::strcmp(word, SOAP_FLAG) == 0) {
        std::string version;
        if (!markOption(line, OPTION_SOAP, word, error) || !optionValue(argc, argv, at, version, error)) return false;
        if (soapVersionOf(version, line.soapVersion)) return true;
        error = "unknown SOAP version \"" + version + "\" (1.1 or 1.2)";
        return false;
    }
    error = "unknown option " + std::string(word);
    return false;
}

}  // namespace

bool parseCommandLine(int argc, char** argv, CommandLine& line, std::string& error) {
    if (argc < 2) {
        error = "no command";
        return false;
    }
    line.command = argv[1];
    for (int at = 2; at < argc; ++at) {
        if (!looksLikeOption(argv[at])) {
            line.operands.push_back(argv[at]);
        } else if (!parseOption(argc, argv, at, line, error)) {
            return false;
        }
    }
    return true;
}

}  // namespace qklmsg

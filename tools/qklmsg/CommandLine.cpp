#include "CommandLine.h"

#include <cstring>
#include <utility>

namespace qklmsg {

namespace {

const char* const OUTPUT_FLAG = "-o";
const char* const BINARY_FLAG = "-b";
const char* const SOAP_FLAG = "--soap";

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
    if (std::strcmp(word, OUTPUT_FLAG) == 0)
        return markOption(line, OPTION_OUTPUT, word, error) && optionValue(argc, argv, at, line.output, error);
    if (std::strcmp(word, BINARY_FLAG) == 0) {
        line.binary = true;
        return markOption(line, OPTION_BINARY, word, error);
    }
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

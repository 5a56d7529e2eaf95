// The commands of qklmsg, one function each; main.cpp checks the operands and
// options against its table before calling one. Each returns an ExitStatus.
#ifndef QKLMSG_COMMANDS_H
#define QKLMSG_COMMANDS_H

#include "CommandLine.h"

namespace qklmsg {

int runDemo(const CommandLine& line);        // DemoCommand.cpp
int runToXml(const CommandLine& line);       // ConvertCommands.cpp
int runToBinary(const CommandLine& line);    // ConvertCommands.cpp
int runSoapToMsg(const CommandLine& line);   // SoapCommands.cpp
int runMsgToSoap(const CommandLine& line);   // SoapCommands.cpp
int runInspect(const CommandLine& line);     // InspectCommand.cpp
int runVocab(const CommandLine& line);       // VocabCommand.cpp
int runServe(const CommandLine& line);       // ServeCommand.cpp

// Usage errors found by a command itself (after the table's checks): one
// line on standard error with the reason, one pointing to --help, EXIT_USAGE.
int usageError(const std::string& why);

}  // namespace qklmsg

#endif

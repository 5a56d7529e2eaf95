// A program outside the project, built against the installed package: its only include is <qkl/QKL.h>.
#include <qkl/QKL.h>

#include <cstdio>

int main() {
    QKL::QKLBinaryInternals doc;
    QKL::BinaryPath path;
    if (doc.turnBlank() != 0 || doc.insert(path, QKL::getElemIdByStringDefault("packet", 6), 50, nullptr, 0, false) != 0)
        return 1;
    std::printf("installed library: a %u-byte document\n", doc.used());
    return doc.used() == 24 ? 0 : 1;
}

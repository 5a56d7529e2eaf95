// A program outside the project, built against the installed package (through CMake's find_package,
// and through pkg-config with a run path): its only include is <qkl/QKL.h>.
#include <qkl/QKL.h>

#include <cstdio>

int main() {
    QKL::QKLBinaryInternals doc;
    QKL::BinaryPath path;
    if (doc.turnBlank() != 0 || doc.insert(path, QKL::getElemIdByStringDefault("packet", 6), 50, nullptr, 0, false) != 0)
        return 1;
    const QKL::MessagePtr sent = QKL::makeMessage("packet");
    if (!sent || QKL::iterate(*sent)->putValue(42, "count") != 0) return 1;
    const QKL::MessagePtr received = QKL::parse(QKL::serialize(*sent).view());
    const std::optional<int> count = received ? QKL::get<int>(*QKL::iterate(*received), "count") : std::nullopt;
    std::printf("installed library: a %u-byte document, count %d\n", doc.used(), count.value_or(-1));
    return doc.used() == 24 && count == 42 ? 0 : 1;
}

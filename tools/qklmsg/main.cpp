// qklmsg: the command-line tool (see CONVENTIONS.md). Exit status: 0 done,
// 1 input refused, 2 usage.
#include <cstdio>
#include <cstring>

namespace {

int usage() {
    std::fprintf(stderr, "usage: qklmsg demo\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    (void)argv;
    if (argc < 2) return usage();
    return usage();
}

// Test helper: writes the namespace variables it inherited into a file.
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

int main(int argc, char** argv) {
    if (argc < 2) {
        return 2;
    }
    std::FILE* out = std::fopen(argv[1], "w");
    if (out == nullptr) {
        return 3;
    }
    for (const char* name : {"KIV_NAMESPACE", "KIV_REGISTRY", "KIV_DEVICE_ROOT"}) {
        const char* value = std::getenv(name);
        std::fprintf(out, "%s\n", value != nullptr ? value : "");
    }
    return std::fclose(out) == 0 ? 0 : 4;
}

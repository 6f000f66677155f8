// Test helper: a GPS client process. It starts the service, writes the
// result of StartService (hexadecimal) into the result file, reports ready,
// and ends normally (giving up its count) once the quit file exists. With a
// go file it starts the service only once that file exists, so that several
// clients can be made to start at the same moment.
//   kiv_gps_client <result-file> <quit-file> [<go-file>]
#include <kiv/gps/MGPSService.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "support/HelperProcess.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    if (argc > 3) {
        for (int i = 0; i < 30000 && !std::filesystem::exists(argv[3]); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    {
        kiv::gps::MGPSService service;
        const unsigned int result = service.StartService();
        if (std::FILE* out = std::fopen(argv[1], "w")) {
            std::fprintf(out, "%08X\n", result);
            std::fclose(out);
        }
        kiv::test::ReportReady();
        for (int i = 0; i < 3000 && !std::filesystem::exists(argv[2]); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    return 0;
}

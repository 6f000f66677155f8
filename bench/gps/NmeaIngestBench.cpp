// Ingest of a recorded NMEA stream through MNmeaParser, registry writes and
// events included, against the line rate of a 115200-baud port carrying the
// same stream (10 bits per byte on the wire).
#include <kiv/gps/MNmeaParser.h>

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string ReadDrive() {
    std::ifstream in(KIV_DEMO_DRIVE, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void BM_NmeaIngestWithRegistry(benchmark::State& state) {
    const std::string drive = ReadDrive();
    const auto sentences = std::count(drive.begin(), drive.end(), '$');
    kiv::gps::MNmeaParser parser;
    for (auto _ : state) {
        // Fed as a port delivers it: chunks of up to 1,024 bytes.
        for (std::size_t at = 0; at < drive.size(); at += 1024) {
            const std::size_t n = std::min<std::size_t>(1024, drive.size() - at);
            parser.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(drive.data() + at),
                                        static_cast<unsigned int>(n));
        }
    }
    state.SetItemsProcessed(state.iterations() * sentences);
    state.SetBytesProcessed(state.iterations() * static_cast<long long>(drive.size()));
    const double lineBytesPerSecond = 115200.0 / 10;
    state.counters["line_rate_multiple"] =
        benchmark::Counter(static_cast<double>(drive.size()) / lineBytesPerSecond,
                           benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_NmeaIngestWithRegistry)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    // A registry and a namespace of the benchmark's own.
    char dir[] = "/tmp/kiv-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        return 1;
    }
    setenv("KIV_REGISTRY", (std::string(dir) + "/registry.db").c_str(), 1);
    setenv("KIV_DEVICE_ROOT", dir, 1);
    setenv("KIV_NAMESPACE", ("bench" + std::to_string(getpid())).c_str(), 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(dir);
    return 0;
}

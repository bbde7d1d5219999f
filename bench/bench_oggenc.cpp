// The in-process Ogg Vorbis encoder at "-b 160" against the oggenc program on
// the same 30-second stereo WAV, and the peak memory of one encode.
//
// Peak memory is measured on a child process that only encodes: this program
// started again as "bench_oggenc --encode-once IN OUT", which reports the high
// water mark of its own resident memory (VmHWM). wait4()'s ru_maxrss would not
// do: a spawned child inherits the high water mark of the parent's memory.
#include "encode/OggEnc.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

extern char** environ;

namespace {

struct Fixture {
    std::string folder;
    std::string input;
    std::string output;
};

double cpuMs(const rusage& usage)
{
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

// Runs a program and waits for it; false when it could not run or failed.
// Standard output goes to *output when given, else with standard error to /dev/null.
// The CPU time the child used is added to *cpu when given.
bool runChild(std::vector<std::string> arguments, std::string* output = nullptr, double* cpu = nullptr)
{
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    int fds[2] = {-1, -1};
    if (output && pipe(fds) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output) {
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (output) {
        close(fds[1]);
        char buffer[256];
        ssize_t got;
        while (spawned == 0 && (got = read(fds[0], buffer, sizeof buffer)) > 0)
            output->append(buffer, static_cast<size_t>(got));
        close(fds[0]);
    }
    if (spawned != 0)
        return false;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid)
        return false;
    if (cpu)
        *cpu += cpuMs(usage);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The high water mark of this process's resident memory, in kB.
long residentHighWaterKb()
{
    FILE* status = std::fopen("/proc/self/status", "r");
    if (!status)
        return -1;
    char line[256];
    long kb = -1;
    while (std::fgets(line, sizeof line, status))
        if (std::sscanf(line, "VmHWM: %ld kB", &kb) == 1)
            break;
    std::fclose(status);
    return kb;
}

const Fixture& fixture()
{
    static Fixture made = [] {
        Fixture f;
        char folder[] = "/tmp/bench_oggenc-XXXXXX";
        f.folder = mkdtemp(folder);
        f.input = f.folder + "/music.wav";
        f.output = f.folder + "/out.ogg";
        // Something with the spectrum of music rather than a lone sine: a chord over noise.
        if (!runChild({"sox", "-n", "-r", "44100", "-c", "2", "-b", "16", f.input, "synth", "30", "pinknoise",
                      "sine", "220", "sine", "277", "sine", "330", "sine", "440-1760", "remix", "1-5", "1-5",
                      "gain", "-6"})) {
            std::fprintf(stderr, "sox could not make the test signal\n");
            std::exit(1);
        }
        return f;
    }();
    return made;
}

int encodeInProcess(const std::string& input, const std::string& output)
{
    std::vector<std::string> arguments{"", "-Q", "-b", "160", "-o", output, input};
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    return oggenc_main(static_cast<int>(arguments.size()), argv.data());
}

void BM_InProcessEncoder(benchmark::State& state)
{
    const Fixture& f = fixture();
    rusage before{}, after{};
    getrusage(RUSAGE_THREAD, &before);
    for (auto _ : state) {
        if (encodeInProcess(f.input, f.output) != 0)
            state.SkipWithError("the encoder failed");
    }
    getrusage(RUSAGE_THREAD, &after);
    // CPU time per encode: comparable with the child's even on a busy machine.
    state.counters["cpu_ms"] = (cpuMs(after) - cpuMs(before)) / double(state.iterations());
    state.counters["output_kB"] = double(std::filesystem::file_size(f.output)) / 1024;
}
BENCHMARK(BM_InProcessEncoder)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5);

void BM_OggencProgram(benchmark::State& state)
{
    const Fixture& f = fixture();
    double cpu = 0;
    for (auto _ : state) {
        if (!runChild({"oggenc", "-Q", "-b", "160", "-o", f.output, f.input}, nullptr, &cpu))
            state.SkipWithError("oggenc failed (is vorbis-tools installed?)");
    }
    state.counters["cpu_ms"] = cpu / double(state.iterations());
    state.counters["output_kB"] = double(std::filesystem::file_size(f.output)) / 1024;
}
BENCHMARK(BM_OggencProgram)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(5);

// One encode in a child of its own; the figure is the child's peak resident memory.
void BM_PeakMemory(benchmark::State& state)
{
    const Fixture& f = fixture();
    long peakKb = -1;
    for (auto _ : state) {
        std::string report;
        if (!runChild({std::filesystem::read_symlink("/proc/self/exe"), "--encode-once", f.input, f.output}, &report) ||
            std::sscanf(report.c_str(), "%ld", &peakKb) != 1)
            state.SkipWithError("the encode failed");
    }
    state.counters["peak_MB"] = double(peakKb) / 1024;
}
BENCHMARK(BM_PeakMemory)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--encode-once") == 0) {
        const int status = encodeInProcess(argv[2], argv[3]);
        std::printf("%ld\n", residentHighWaterKb());
        return status;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(fixture().folder);
    return 0;
}

// pvx_bench: main, the measured loops of the three variants, the reporter
// that collects the times, and the summary table. See harness.h.
#include "harness.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace pvxbench {

// ---------------------------------------------------------------- images

namespace detail {

namespace {
// Bytes of all live images, padding included.
std::int64_t liveImageBytes = 0;
}  // namespace

void allocated(const Image& img, int channels, int elementBytes)
{
    if (!img.data) {
        std::fprintf(stderr, "pvx_bench: cannot allocate a %dx%d image of %d channels of %d bytes\n",
                     img.size.width, img.size.height, channels, elementBytes);
        std::abort();
    }
    liveImageBytes += std::int64_t(img.step) * img.size.height;
}

namespace {
// Differs between images so that no two buffers hold the same bytes.
std::uint32_t nextSeed()
{
    static std::uint32_t seed = 1;
    return seed++ * 0x9E3779B9u;
}
}  // namespace

void fillFloat(Image& img)
{
    const std::uint32_t seed = nextSeed();
    const std::size_t n = std::size_t(img.step) * std::size_t(img.size.height) / sizeof(float);
    float* p = static_cast<float*>(img.data);
    for (std::size_t i = 0; i < n; ++i)
        p[i] = float((std::uint32_t(i) * 2654435761u + seed) >> 8) * (1.0f / 16777216.0f);
}

void fillInteger(Image& img)
{
    const std::uint32_t seed = nextSeed();
    const std::size_t n = std::size_t(img.step) * std::size_t(img.size.height);
    unsigned char* p = static_cast<unsigned char*>(img.data);
    for (std::size_t i = 0; i < n; ++i)
        p[i] = static_cast<unsigned char>((std::uint32_t(i) * 2654435761u + seed) >> 24);
}

}  // namespace detail

Image::~Image()
{
    if (data)
        detail::liveImageBytes -= std::int64_t(step) * size.height;
    pvxiFree(data);
}

#ifdef PVX_BENCH_HAVE_OPENCV
cv::Mat asMat(const Image& img)
{
    return cv::Mat(img.size.height, img.size.width, CV_MAKETYPE(img.cvDepth, img.channels), img.data,
                   std::size_t(img.step));
}
#endif

// ---------------------------------------------------------------- registry

namespace {

enum class Variant { Pvx, Limit, Peer };
constexpr const char* kVariantNames[] = {"pvx", "limit", "peer"};

struct Family {
    const char* name;
    void (*addRows)();
};

std::vector<Family>& families()
{
    static std::vector<Family> list;
    return list;
}

std::vector<Row>& rows()
{
    static std::vector<Row> list;
    return list;
}

std::string sizeText(PvxiSize s)
{
    return std::to_string(s.width) + "x" + std::to_string(s.height);
}

// "op[/detail]/WxH", the common prefix of a row's benchmark names.
std::string rowName(const Row& r)
{
    return r.op + (r.detail.empty() ? "" : "/" + r.detail) + "/" + sizeText(r.size);
}

std::int64_t rowTraffic(const Row& r) { return r.bytesRead + r.bytesWritten; }

std::int64_t limitBytes(const Row& r)
{
    return r.limit == Limit::Copy ? rowTraffic(r) / 2 : rowTraffic(r);
}

}  // namespace

void addRow(Row row)
{
    if (row.op.empty() || !row.setup || rowTraffic(row) <= 0 || row.bytesRead < 0 || row.bytesWritten < 0 ||
        row.detail.find(' ') != std::string::npos) {
        std::fprintf(stderr, "pvx_bench: invalid row \"%s\"\n", rowName(row).c_str());
        std::abort();
    }
    rows().push_back(std::move(row));
}

bool addFamily(const char* name, void (*addRows)())
{
    families().push_back({name, addRows});
    return true;
}

// ---------------------------------------------------------------- measuring

namespace {

// The buffers of rows already set up, kept while their images fit in the
// budget so that variants and repetitions run in any order (for instance
// with --benchmark_enable_random_interleaving) without setting a row up
// again. The least recently used rows go first when the budget is exceeded;
// the row in use always stays. Each row has its own limit buffers, so that
// the limit finds its data in the caches no more often than the row's pvx
// function and peer do.
std::int64_t bufferBudget = std::int64_t(2048) << 20;

struct CachedRow {
    std::unique_ptr<Calls> calls;
    ImagePtr limitSrc, limitDst;  // made when the limit first runs
    std::uint64_t lastUse = 0;
};
std::map<std::size_t, CachedRow> cachedRows;
std::uint64_t useCounter = 0;

void enforceBudget(std::size_t keep)
{
    while (detail::liveImageBytes > bufferBudget && cachedRows.size() > 1) {
        auto oldest = cachedRows.end();
        for (auto c = cachedRows.begin(); c != cachedRows.end(); ++c)
            if (c->first != keep && (oldest == cachedRows.end() || c->second.lastUse < oldest->second.lastUse))
                oldest = c;
        cachedRows.erase(oldest);
    }
}

CachedRow& stateOf(std::size_t row)
{
    auto it = cachedRows.find(row);
    if (it == cachedRows.end()) {
        it = cachedRows.emplace(row, CachedRow{std::make_unique<Calls>(rows()[row].setup()), {}, {}, 0}).first;
        enforceBudget(row);
    }
    it->second.lastUse = ++useCounter;
    return it->second;
}

// The row's limit buffers, `bytes` long each.
void makeLimitBuffers(std::size_t row, CachedRow& state, std::int64_t bytes)
{
    if (state.limitDst)
        return;
    if (bytes > INT_MAX) {
        std::fprintf(stderr, "pvx_bench: limit buffer of %lld bytes is too large\n", (long long)bytes);
        std::abort();
    }
    const PvxiSize size = {int(std::max<std::int64_t>(bytes, 1)), 1};
    if (rows()[row].limit == Limit::Copy)
        state.limitSrc = newImage<Pvx8u, 1>(size);
    state.limitDst = newImage<Pvx8u, 1>(size);
    enforceBudget(row);
}

// Seconds each variant runs untimed before every timed loop.
double warmupSeconds = 0.020;

// Runs f untimed, at least twice and for warmupSeconds, then in the timed
// loop: the row's buffers are then back in whatever caches they fit in,
// however much other rows ran since this row's last repetition.
template <class F>
void run(benchmark::State& state, F&& f)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    for (int calls = 0; calls < 2 || std::chrono::duration<double>(Clock::now() - start).count() < warmupSeconds;
         ++calls)
        f();
    for (auto _ : state) {
        f();
        benchmark::ClobberMemory();
    }
}

// The body of every benchmark. A failing pvx call is reported instead of
// measured.
void measure(benchmark::State& state, std::size_t rowIndex, Variant variant)
{
    const Row& row = rows()[rowIndex];
    CachedRow& rowState = stateOf(rowIndex);
    Calls& calls = *rowState.calls;
    switch (variant) {
    case Variant::Pvx: {
        const PvxStatus first = calls.pvx();
        if (first != pvxStsOk) {
            state.SkipWithError((std::string("pvxi") + row.op + " returned " + pvxGetStatusString(first)).c_str());
            return;
        }
        run(state, [&calls] {
            PvxStatus status = calls.pvx();
            benchmark::DoNotOptimize(status);
        });
        break;
    }
    case Variant::Limit: {
        const std::size_t n = std::size_t(limitBytes(row));
        makeLimitBuffers(rowIndex, rowState, std::int64_t(n));
        unsigned char* src = rowState.limitSrc ? rowState.limitSrc->ptr<unsigned char>() : nullptr;
        unsigned char* dst = rowState.limitDst->ptr<unsigned char>();
        if (row.limit == Limit::Copy)
            run(state, [src, dst, n] {
                benchmark::DoNotOptimize(src);
                benchmark::DoNotOptimize(dst);
                std::memcpy(dst, src, n);
            });
        else
            run(state, [dst, n] {
                benchmark::DoNotOptimize(dst);
                std::memset(dst, 0x5A, n);
            });
        break;
    }
    case Variant::Peer: {
        if (!calls.peer) {
            state.SkipWithError("the row declares a peer but its setup made none");
            return;
        }
        run(state, [&calls] { calls.peer(); });
        break;
    }
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * rowTraffic(row));
}

// ---------------------------------------------------------------- results

enum class Statistic { Median, Min, Mean };

struct Measured {
    std::vector<double> seconds;                 // per call, one per repetition
    std::map<std::string, double> aggregates;  // per call, by aggregate name
};

// Benchmark name -> (row, variant), and what was measured for it.
std::map<std::string, std::pair<std::size_t, Variant>> benchmarkOf;
std::map<std::pair<std::size_t, Variant>, Measured> results;

double secondsPerUnit(benchmark::TimeUnit unit)
{
    switch (unit) {
    case benchmark::kNanosecond: return 1e-9;
    case benchmark::kMicrosecond: return 1e-6;
    case benchmark::kMillisecond: return 1e-3;
    case benchmark::kSecond: return 1.0;
    }
    return 1.0;
}

// Records the per-call real time of every run of our benchmarks and forwards
// the runs to the reporter chosen by --benchmark_format. With
// `aggregatesOnly` and the console format, a repeated benchmark shows only its
// aggregates (as --benchmark_display_aggregates_only would, while the summary
// still sees every repetition).
class CollectingReporter : public benchmark::BenchmarkReporter {
public:
    CollectingReporter(benchmark::BenchmarkReporter* display, bool aggregatesOnly)
        : display_(display), aggregatesOnly_(aggregatesOnly && consoleFormat())
    {
    }

    bool ReportContext(const Context& context) override
    {
        display_->SetOutputStream(&GetOutputStream());
        display_->SetErrorStream(&GetErrorStream());
        return display_->ReportContext(context);
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            const auto it = benchmarkOf.find(run.run_name.function_name);
            if (it == benchmarkOf.end())
                continue;
            Measured& m = results[it->second];
            const double seconds = run.GetAdjustedRealTime() * secondsPerUnit(run.time_unit);
            if (run.run_type == Run::RT_Iteration)
                m.seconds.push_back(seconds);
            else if (run.aggregate_unit == benchmark::kTime)
                m.aggregates[run.aggregate_name] = seconds;
        }
        if (!aggregatesOnly_) {
            display_->ReportRuns(runs);
            return;
        }
        std::vector<Run> shown;
        for (const Run& run : runs)
            if (run.repetitions <= 1 || run.run_type == Run::RT_Aggregate || run.error_occurred)
                shown.push_back(run);
        if (!shown.empty())
            display_->ReportRuns(shown);
    }

    void Finalize() override { display_->Finalize(); }

    bool consoleFormat() const { return dynamic_cast<benchmark::ConsoleReporter*>(display_.get()) != nullptr; }

private:
    std::unique_ptr<benchmark::BenchmarkReporter> display_;
    bool aggregatesOnly_;
};

const char* statisticName(Statistic s)
{
    switch (s) {
    case Statistic::Median: return "median";
    case Statistic::Min: return "min";
    case Statistic::Mean: return "mean";
    }
    return "?";
}

// The chosen statistic of the per-call times; 0 when nothing was measured.
double representativeSeconds(const Measured& m, Statistic s)
{
    std::vector<double> v = m.seconds;
    if (v.empty()) {  // only aggregates were reported
        const auto it = m.aggregates.find(statisticName(s));
        return it == m.aggregates.end() ? 0.0 : it->second;
    }
    std::sort(v.begin(), v.end());
    switch (s) {
    case Statistic::Min: return v.front();
    case Statistic::Mean: {
        double sum = 0;
        for (double x : v)
            sum += x;
        return sum / double(v.size());
    }
    case Statistic::Median: {
        const std::size_t n = v.size();
        return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
    }
    }
    return 0.0;
}

void printSummary(std::FILE* out, Statistic statistic)
{
    if (results.empty())
        return;
    const PvxLibraryVersion* version = pvxiGetLibVersion();
    std::fprintf(out, "\npvx_bench summary: pvx %s, code path %s", version->versionText, version->targetCode);
#ifdef PVX_BENCH_HAVE_OPENCV
    std::fprintf(out, "; peer OpenCV %s, 1 thread", CV_VERSION);
#else
    std::fprintf(out, "; no peer (built without OpenCV)");
#endif
    std::fprintf(out,
                 "\nGB/s = (bytes read + bytes written) / %s real time per call over the repetitions,"
                 " 1 GB = 1e9 bytes\n(Google Benchmark's G/s above are 2^30 bytes);\n",
                 statisticName(statistic));
    std::fprintf(out, "pvx/limit and pvx/peer are time ratios (1.00 = as fast, below 1 = pvx faster).\n\n");

    std::size_t opWidth = 2;
    for (std::size_t i = 0; i < rows().size(); ++i)
        opWidth = std::max(opWidth, rows()[i].op.size() + (rows()[i].detail.empty() ? 0 : rows()[i].detail.size() + 1));
    std::fprintf(out, "%-*s  %-9s  %9s  %10s  %9s  %9s  %8s\n", int(opWidth), "op", "size", "pvx GB/s", "limit GB/s",
                 "peer GB/s", "pvx/limit", "pvx/peer");

    for (std::size_t i = 0; i < rows().size(); ++i) {
        double t[3] = {0, 0, 0};
        bool any = false;
        for (int v = 0; v < 3; ++v) {
            const auto it = results.find({i, Variant(v)});
            if (it != results.end())
                t[v] = representativeSeconds(it->second, statistic);
            any = any || t[v] > 0;
        }
        if (!any)
            continue;
        const Row& r = rows()[i];
        const double traffic = double(rowTraffic(r));
        char rate[3][16], ratio[2][16];
        for (int v = 0; v < 3; ++v)
            if (t[v] > 0)
                std::snprintf(rate[v], sizeof rate[v], "%.2f", traffic / t[v] * 1e-9);
            else
                std::snprintf(rate[v], sizeof rate[v], "-");
        for (int v = 1; v < 3; ++v)
            if (t[0] > 0 && t[v] > 0)
                std::snprintf(ratio[v - 1], sizeof ratio[v - 1], "%.2f", t[0] / t[v]);
            else
                std::snprintf(ratio[v - 1], sizeof ratio[v - 1], "-");
        const std::string op = r.op + (r.detail.empty() ? "" : " " + r.detail);
        std::fprintf(out, "%-*s  %-9s  %9s  %10s  %9s  %9s  %8s\n", int(opWidth), op.c_str(), sizeText(r.size).c_str(),
                     rate[0], rate[1], rate[2], ratio[0], ratio[1]);
    }
    std::fflush(out);
}

// minStatistic: also compute the minimum as an aggregate, for a summary that
// is to see only aggregates.
void registerBenchmarks(bool minStatistic)
{
    for (std::size_t i = 0; i < rows().size(); ++i) {
        const Row& r = rows()[i];
        bool withPeer = false;
#ifdef PVX_BENCH_HAVE_OPENCV
        withPeer = r.peer;
#endif
        for (int v = 0; v < 3; ++v) {
            const Variant variant = Variant(v);
            if (variant == Variant::Peer && !withPeer)
                continue;
            const std::string name = rowName(r) + "/" + kVariantNames[v];
            benchmarkOf[name] = {i, variant};
            benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(
                name.c_str(), [i, variant](benchmark::State& s) { measure(s, i, variant); });
            b->UseRealTime()->Unit(benchmark::kMicrosecond);
            // Not by default: Google Benchmark applies each statistic to the
            // counters too, so this line's bytes_per_second would be the
            // lowest throughput, not the one of the lowest time.
            if (minStatistic)
                b->ComputeStatistics("min", [](const std::vector<double>& t) {
                    return t.empty() ? 0.0 : *std::min_element(t.begin(), t.end());
                });
        }
    }
}

bool startsWith(const char* s, const char* prefix) { return std::strncmp(s, prefix, std::strlen(prefix)) == 0; }

// The value of Google Benchmark flag `name` ("-name[=value]" or
// "--name[=value]") on the command line: null when absent, "" without a value.
const char* flagValue(const std::vector<char*>& args, const char* name)
{
    const std::size_t n = std::strlen(name);
    for (std::size_t i = args.size(); i-- > 1;) {  // the last one counts
        const char* p = args[i];
        if (*p++ != '-')
            continue;
        if (*p == '-')
            ++p;
        if (std::strncmp(p, name, n) == 0 && (p[n] == '=' || p[n] == '\0'))
            return p[n] == '=' ? p + n + 1 : p + n;
    }
    return nullptr;
}

bool hasFlag(const std::vector<char*>& args, const char* name) { return flagValue(args, name) != nullptr; }

// Whether boolean flag `name` is given and true ("" counts as true).
bool flagTrue(const std::vector<char*>& args, const char* name)
{
    const char* v = flagValue(args, name);
    return v && !std::strchr("fFnN0", v[0] ? v[0] : 'x') && std::strcmp(v, "off") != 0;
}

// Google Benchmark flags that pvx_bench sets unless the command line does:
// many short repetitions in random order over the whole run, so that a
// moment of interference from the rest of the machine cannot decide a row.
char kDefaultFlags[][48] = {
    "--benchmark_repetitions=20",
    "--benchmark_min_time=0.025",
    "--benchmark_enable_random_interleaving=true",
};

void usage()
{
    std::printf("pvx_bench [--pvx_stat=min|median|mean] [--pvx_buffer_mb=N] [--pvx_warmup_ms=T]\n"
                "          [Google Benchmark flags]\n"
                "  --pvx_stat       statistic of the repetitions that the summary reports (default min)\n"
                "  --pvx_buffer_mb  megabytes of row buffers kept between runs (default 2048)\n"
                "  --pvx_warmup_ms  untimed calls before each repetition, at least two (default 20)\n"
                "  Google Benchmark defaults, unless given:");
    for (const char* f : kDefaultFlags)
        std::printf(" %s", f);
    std::printf("\n\n");
}

}  // namespace
}  // namespace pvxbench

int main(int argc, char** argv)
{
    using namespace pvxbench;
    Statistic statistic = Statistic::Min;

    // Rows set up and drop images of tens of megabytes in random order. With
    // glibc's sliding threshold those would come from the heap after the
    // first free, and the holes they leave are never given back: the process
    // grew past 20 GB. A fixed threshold maps and unmaps every large buffer.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);

    // Our own flags are taken out before Google Benchmark sees the rest.
    std::vector<char*> args{argv[0]};
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        if (startsWith(a, "--pvx_stat=")) {
            const std::string v = a + std::strlen("--pvx_stat=");
            if (v == "min")
                statistic = Statistic::Min;
            else if (v == "median")
                statistic = Statistic::Median;
            else if (v == "mean")
                statistic = Statistic::Mean;
            else {
                usage();
                return 1;
            }
        } else if (startsWith(a, "--pvx_buffer_mb=")) {
            char* end = nullptr;
            const long long mb = std::strtoll(a + std::strlen("--pvx_buffer_mb="), &end, 10);
            if (*end || mb < 0) {
                usage();
                return 1;
            }
            bufferBudget = std::int64_t(mb) << 20;
        } else if (startsWith(a, "--pvx_warmup_ms=")) {
            char* end = nullptr;
            const double ms = std::strtod(a + std::strlen("--pvx_warmup_ms="), &end);
            if (*end || !(ms >= 0)) {
                usage();
                return 1;
            }
            warmupSeconds = ms * 1e-3;
        } else if (startsWith(a, "--pvx")) {
            usage();
            return 1;
        } else {
            if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h"))
                usage();
            args.push_back(argv[i]);
        }
    }
    for (char* f : kDefaultFlags) {
        const std::string name(f + 2, std::strchr(f, '=') - (f + 2));
        if (!hasFlag(args, name.c_str()))
            args.insert(args.begin() + 1, f);
    }
    // Unless the command line chooses with --benchmark_display_aggregates_only
    // or --benchmark_report_aggregates_only, the console shows only the
    // aggregates of repeated benchmarks while the summary sees every
    // repetition. When the command line asks for aggregates only, the summary
    // sees only those, so the minimum is then computed as one.
    const bool aggregateFlags =
        hasFlag(args, "benchmark_display_aggregates_only") || hasFlag(args, "benchmark_report_aggregates_only");
    const bool aggregatesOnly = flagTrue(args, "benchmark_display_aggregates_only") ||
                                flagTrue(args, "benchmark_report_aggregates_only");
    int count = int(args.size());
    args.push_back(nullptr);

    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;
#ifdef PVX_BENCH_HAVE_OPENCV
    cv::setNumThreads(1);
#endif

    for (const Family& f : families())
        f.addRows();
    registerBenchmarks(aggregatesOnly && statistic == Statistic::Min);

    CollectingReporter reporter(benchmark::CreateDefaultDisplayReporter(), !aggregateFlags);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    cachedRows.clear();

    // The table follows Google Benchmark's output on stdout, unless that
    // output is JSON or CSV, which the table must not break.
    std::cout.flush();
    printSummary(reporter.consoleFormat() ? stdout : stderr, statistic);
    benchmark::Shutdown();
    return 0;
}

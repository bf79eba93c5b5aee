// Time, system calls and log bytes of the library's operations. The card libraries answer at once,
// so that what is left is the library's own.

#include "bench/instant_card.h"
#include "bench/system_call_count.h"
#include "card_v_func.h"
#include "session/clock.h"
#include "session/log.h"

#include <QDate>
#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

namespace {

RenewContext context;

qint64 logSize()
{
    outLogFile.flush();
    return QFileInfo(RENEWLOGFILE.fileName()).size();
}

// Times the work and reports, beside it, the system calls and the log bytes of one more run.
void measure(benchmark::State& state, const std::function<void()>& work)
{
    work();
    const qint64 before = logSize();
    work();
    state.counters["log_bytes"] = static_cast<double>(logSize() - before);
    if (const auto calls = bench::countSystemCalls(work)) {
        state.counters["system_calls"] = calls->all;
        state.counters["file_status_calls"] = calls->fileStatus;
    } else {
        state.SkipWithError("system calls cannot be counted: ptrace is not permitted here");
        return;
    }
    for (auto iteration : state) {
        static_cast<void>(iteration);
        work();
        // The log is emptied between runs, as it is between sessions.
        if (RENEWLOGFILE.size() > 50'000'000) {
            state.PauseTiming();
            outLogFile.flush();
            RENEWLOGFILE.resize(0);
            state.ResumeTiming();
        }
    }
}

void inventoryOfNineCertificates(benchmark::State& state)
{
    measure(state, [] {
        if (fill_sc_objects(&context) != inventory_result::completed) {
            std::abort();
        }
    });
}

void eligibilityVerdict(benchmark::State& state)
{
    int unused = 0;
    fill_sc_objects(&context);
    measure(state, [&] { controllo_pending_AUT(&context, 0, 1, &unused); });
}

void lookup(benchmark::State& state)
{
    fill_sc_objects(&context);
    const QString id = context.value(QStringLiteral("CNS: 1")).value(renew_context::renewalId);
    measure(state, [&] {
        QHash<QString, QString> record;
        if (!find_certid_in_conf(&context, id, &record)) {
            std::abort();
        }
        benchmark::DoNotOptimize(record);
    });
}

void logLine(benchmark::State& state, session::LineEnd end)
{
    session::LocalClock clock;
    session::Log log(outLogFile, clock);
    measure(state, [&] { log.line(QStringLiteral("Situazione oggetti nella SmartCard:"), end); });
}

std::string outputOf(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::array<char, 64> line{};
    return pipe != nullptr && std::fgets(line.data(), line.size(), pipe.get()) != nullptr
               ? line.data()
               : "";
}

void loading(benchmark::State& state)
{
    for (auto iteration : state) {
        static_cast<void>(iteration);
        const std::string nanoseconds = outputOf(LOAD_PROBE " " TARVELOQT_LIBRARY_FILE);
        if (nanoseconds.empty()) {
            state.SkipWithError("the library could not be loaded");
            return;
        }
        state.SetIterationTime(std::stod(nanoseconds) / 1e9);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const QTemporaryDir home;
    setenv("HOME", home.path().toLocal8Bit().constData(), 1);
    // The usual case on a desktop, and the dear one for a clock that asks for the zone each time.
    unsetenv("TZ");
    bench::setNotAfter(
        QDate::currentDate().addDays(30).toString(QStringLiteral("yyyyMMdd")).toStdString() +
        "000000");
    init_renew_system(&context);
    set_reader(&context, QStringLiteral("Instant Reader 00"));
    set_pin(&context, QStringLiteral("12345678"));

    benchmark::RegisterBenchmark("inventory_of_nine_certificates", inventoryOfNineCertificates)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("eligibility_verdict", eligibilityVerdict)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("lookup", lookup)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("log_line", logLine, session::LineEnd::newline)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("log_line_flushed", logLine, session::LineEnd::flush)
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("loading_the_library", loading)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    free_renew_system(&context);
    return 0;
}

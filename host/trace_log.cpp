// The trace log on spdlog: records are formatted here once, spdlog frames and writes them.
#include "host/trace_log.h"

#include "host/cancellation_hold.h"
#include "host/printable_text.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <typeinfo>
#include <utility>

using ztfi_pdk_4_4::CFiTraceLog;

namespace kivclaim::host {

namespace {

spdlog::level::level_enum severityOf(int level)
{
    switch (level) {
        case ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_ERROR:
            return spdlog::level::err;
        case ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_WARNING:
            return spdlog::level::warn;
        case ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_INFORMATION:
            return spdlog::level::info;
        default:
            return level < ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_ERROR ? spdlog::level::critical : spdlog::level::debug;
    }
}

// Shows the levels with their names in the trace contract, all equally wide.
class LevelName : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& message, const std::tm& /*time*/,
                spdlog::memory_buf_t& destination) override
    {
        static constexpr std::string_view names[] = {"detail  ", "detail  ", "info    ",
                                                     "warning ", "error   ", "critical"};
        const std::string_view name = names[std::min<int>(message.level, spdlog::level::critical)];
        destination.append(name.data(), name.data() + name.size());
    }

    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<LevelName>(); }
};

// Reports on standard error, only the first time, that a destination lost a record.
class FailureReport {
public:
    explicit FailureReport(std::string destinationName) : destination(std::move(destinationName)) {}

    void operator()(const std::string& reason) const
    {
        if (!reported->exchange(true)) {
            std::fprintf(stderr, "kivclaim: trace records for %s are lost: %s\n", printableText(destination).c_str(),
                         printableText(reason).c_str());
        }
    }

private:
    std::string destination;
    std::shared_ptr<std::atomic<bool>> reported = std::make_shared<std::atomic<bool>>(false);
};

// Opens a destination through `makeSink`. One that cannot be opened is reported and left without a sink.
template <class MakeSink>
TraceDestination makeDestination(int threshold, const std::string& name, MakeSink makeSink, const char* lineEnd = "\n")
{
    const FailureReport report(name);
    auto logger = std::make_shared<spdlog::logger>(name);
    try {
        logger->sinks().push_back(makeSink());
    } catch (const std::exception& failure) {
        report(failure.what());
    }
    auto formatter = std::make_unique<spdlog::pattern_formatter>(spdlog::pattern_time_type::local, lineEnd);
    formatter->add_flag<LevelName>('*').set_pattern("%Y-%m-%d %H:%M:%S.%e %^%*%$ %P:%t %v");
    logger->set_formatter(std::move(formatter));
    logger->set_error_handler(report);
    logger->set_level(spdlog::level::trace);
    // Each record is flushed at once: after a crash, the last records matter most.
    logger->flush_on(spdlog::level::trace);
    return {threshold, std::move(logger), {}};
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments)
{
    char shortText[512];
    va_list secondPass;
    va_copy(secondPass, arguments);
    const int length = std::vsnprintf(shortText, sizeof shortText, format, arguments);
    std::string text;
    if (length < 0) {
        text = format;  // the bare format is better than no record
    } else if (static_cast<std::size_t>(length) < sizeof shortText) {
        text.assign(shortText, static_cast<std::size_t>(length));
    } else {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, secondPass);
    }
    va_end(secondPass);
    return text;
}

// The log that makeTraceLog creates. CFiTraceLog itself must not have fields beyond those of the contract, and its
// `trace` is not virtual: it recognises this class by its type.
class BundledTraceLog : public CFiTraceLog {
public:
    explicit BundledTraceLog(const std::vector<TraceDestination>& places) : destinations(places)
    {
        for (const TraceDestination& destination : destinations) {
            highestThreshold = std::max(highestThreshold, destination.threshold);
        }
    }

    bool drops(int level) const { return level > highestThreshold; }

    void write(int level, const std::string& text) const
    {
        std::string printable;
        for (const TraceDestination& destination : destinations) {
            if (level > destination.threshold) {
                continue;
            }
            if (destination.receiver) {
                destination.receiver(level, text);
            } else {
                printable = printableText(text);
                destination.logger->log(severityOf(level), spdlog::string_view_t(printable));
            }
        }
    }

private:
    std::vector<TraceDestination> destinations;
    int highestThreshold = 0;
};

}  // namespace

TraceDestination traceToStandardError(int threshold)
{
    return makeDestination(threshold, "standard error",
                           [] { return std::make_shared<spdlog::sinks::stderr_color_sink_mt>(); });
}

TraceDestination traceToFile(int threshold, const std::string& path, std::size_t maximumBytes, std::size_t keptFiles)
{
    return makeDestination(threshold, path, [&] {
        return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, maximumBytes, keptFiles);
    });
}

TraceDestination traceToSystemLog(int threshold, const std::string& identity)
{
    constexpr bool withRecordForm = true;
    const char* const noLineEnd = "";
    return makeDestination(
        threshold, "the system log",
        [&] { return std::make_shared<spdlog::sinks::syslog_sink_mt>(identity, 0, LOG_USER, withRecordForm); },
        noLineEnd);
}

TraceDestination traceToFunction(int threshold, std::function<void(int level, const std::string& text)> receiver)
{
    return {threshold, nullptr, std::move(receiver)};
}

TraceLogPointer makeTraceLog(const std::vector<TraceDestination>& destinations)
{
    TraceLogPointer log;
    log.acquire(new BundledTraceLog(destinations));
    return log;
}

}  // namespace kivclaim::host

void CFiTraceLog::trace(int level, const char* format, ...)
{
    using kivclaim::host::BundledTraceLog;
    if (typeid(*this) != typeid(BundledTraceLog)) {
        return;
    }
    const auto& log = static_cast<const BundledTraceLog&>(*this);
    if (log.drops(level)) {
        return;
    }
    kivclaim::host_internal::CancellationHold hold;
    va_list arguments;
    va_start(arguments, format);
    try {
        log.write(level, kivclaim::host::formatted(format, arguments));
    } catch (...) {
        // A failure to trace must not affect the traced call; the destinations report their own failures.
    }
    va_end(arguments);
    hold.end();
}

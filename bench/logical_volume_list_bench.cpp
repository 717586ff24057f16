// The list of logical volumes: building it from a listing, and asking it.
#include "framework/cfiexecpipe.h"
#include "modules/kiv_linux_device_mapper_claim.h"

#include <benchmark/benchmark.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string listing;

std::string volumePath(int number)
{
    return "/dev/mapper/vg00-lvol" + std::to_string(number);
}

constexpr char restOfRecord[] =
    "\n  VG Name                vg00\n"
    "  LV UUID                dJ2WqX-4cMA-q1UD-9oDh-T3Yo-LQZr-5bd3Fe\n"
    "  LV Write Access        read/write\n"
    "  LV Creation host, time storage01, 2026-11-20 10:00:00 +0000\n"
    "  LV Status              available\n  # open                 1\n"
    "  LV Size                10.00 GiB\n  Current LE             2560\n  Segments               1\n"
    "  Allocation             inherit\n  Read ahead sectors     auto\n"
    "  - currently set to     256\n  Block device           253:0\n   \n";

// What lvdisplay prints for so many volumes.
std::string listingOf(int volumes)
{
    std::string text;
    for (int i = 0; i < volumes; ++i) {
        const std::string name = "lvol" + std::to_string(i);
        text.append("  --- Logical volume ---\n  LV Path                /dev/vg00/").append(name);
        text.append("\n  LV Name                ").append(name).append(restOfRecord);
    }
    return text;
}

std::vector<std::string> splitIntoLines(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return lines;
}

void buildList(benchmark::State& state)
{
    listing = listingOf(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        CKivDeviceMapperClaim module;
        if (module.createLvmDeviceNamesList() != 0) {
            state.SkipWithError("the list was not built");
        }
    }
}
BENCHMARK(buildList)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The least that has to be done: lines, and a set of the joined names.
void splitAndInsert(benchmark::State& state)
{
    const int volumes = static_cast<int>(state.range(0));
    listing = listingOf(volumes);
    for (auto _ : state) {
        const std::vector<std::string> lines = splitIntoLines(listing);
        benchmark::DoNotOptimize(lines.data());
        std::set<std::string> paths;
        for (int i = 0; i < volumes; ++i) {
            paths.insert(volumePath(i));
        }
        benchmark::DoNotOptimize(paths.size());
    }
}
BENCHMARK(splitAndInsert)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void askList(benchmark::State& state)
{
    const int volumes = static_cast<int>(state.range(0));
    listing = listingOf(volumes);
    CKivDeviceMapperClaim module;
    const std::string present = volumePath(volumes / 2);
    const std::string absent = "/dev/mapper/mpatha";
    for (auto _ : state) {
        benchmark::DoNotOptimize(module.isLinuxLogicalVolume(present));
        benchmark::DoNotOptimize(module.isLinuxLogicalVolume(absent));
    }
}
BENCHMARK(askList)->Arg(1000)->Arg(10000)->Arg(100000);

}  // namespace

// The runner of this program: the listing, at once.
int ztfi_pdk_4_4::CFiExecPipeBase::Exec(std::string, std::vector<std::string>& output, std::string, unsigned long,
                                        std::string, std::string, std::string)
{
    output = splitIntoLines(listing);
    return 0;
}

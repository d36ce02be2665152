// How fast an image gets into the target of an aWire programmer: whether a slow target is kept busy, and how long
// a target without delay takes. Prints each figure beside its goal; a missed goal is told, not punished. The
// simulated programmer runs in the same process.

#include "QuorvelClientAWire.h"
#include "SimGatewayAWire.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using FileStep = CQuorvelClientAWire::FileStep;
using TClock = std::chrono::steady_clock;

constexpr const char* HOST = "127.88.0.14";
constexpr unsigned int FLASH = 0x10000000;
constexpr std::size_t IMAGE_SIZE = std::size_t{1} << 20;

[[noreturn]] void Die(const char* pWhat)
{
    std::fprintf(stderr, "%s failed\n", pWhat);
    std::exit(1);
}

double Seconds(TClock::time_point oStart)
{
    return std::chrono::duration<double>(TClock::now() - oStart).count();
}

// Waits until the transfer has come to a step; false when it fails before.
bool Await(CQuorvelClientAWire& oClient, FileStep::EFileStep eUntil)
{
    FileStep::EFileStep eStep = FileStep::eFailed;
    unsigned char nPercent = 0;
    while (oClient.GetWriteFileStatus(eStep, nPercent) == 0 && eStep != FileStep::eFailed && eStep < eUntil)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    return eStep >= eUntil;
}

// A target that is erased, and a client of it that knows the page size.
struct STarget {
    explicit STarget(std::chrono::microseconds nPageTime)
    {
        oGateway.SetPageTime(nPageTime);
        if (!oGateway.Start(HOST, 0) || oClient.Connect(HOST, oGateway.GetPort(), 1, true) != 0 ||
            oClient.Open() != 0 || oClient.SetConfig(1000000, FLASH, IMAGE_SIZE, 512, "") != 0)
            Die("connecting");
    }

    CSimGatewayAWire oGateway;
    CQuorvelClientAWire oClient{2000};
};

// The part of the writing time, in percent, that the target was writing.
double MeasureBusy(const std::string& strFile, std::chrono::microseconds nPageTime)
{
    STarget oTarget(nPageTime);
    if (oTarget.oClient.WriteFile(strFile) != 0)
        Die("writing");
    const auto oStart = TClock::now();
    if (!Await(oTarget.oClient, FileStep::eVerifying))
        Die("writing");
    const double nTime = Seconds(oStart);
    return 100 * std::chrono::duration<double>(oTarget.oGateway.GetStatistics().nBusy).count() / nTime;
}

// Million bytes of image per second, from the call of WriteFile, which loads the image, to the end.
double MeasureSpeed(const std::string& strFile)
{
    STarget oTarget(std::chrono::microseconds(0));
    const auto oStart = TClock::now();
    if (oTarget.oClient.WriteFile(strFile) != 0 || !Await(oTarget.oClient, FileStep::eFinished))
        Die("writing");
    return static_cast<double>(IMAGE_SIZE) / 1e6 / Seconds(oStart);
}

void Print(const char* pText, std::vector<double> anRounds, double nGoal)
{
    std::sort(anRounds.begin(), anRounds.end());
    std::printf("| %s | %.1f | %.1f | %.1f | at least %.0f | %s |\n", pText, anRounds.back(),
                anRounds[anRounds.size() / 2], anRounds.front(), nGoal,
                anRounds.back() >= nGoal ? "met" : "MISSED");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    const bool bQuick = argc == 2 && std::strcmp(argv[1], "--quick") == 0;
    if (argc > 1 && !bQuick) {
        std::fprintf(stderr, "usage: %s [--quick]\n", argv[0]);
        return 2;
    }
    const std::string strFile = (std::filesystem::temp_directory_path() / "awire_bench.").string() +
                                std::to_string(getpid()) + ".hex";
    std::string strBytes;
    for (std::size_t i = 0; i < IMAGE_SIZE; ++i)
        strBytes += static_cast<char>(i * 7 + i / 251);
    {
        CQuorvelHexfile oImage;
        oImage.AddMemoryBlock(FLASH, strBytes.data(), IMAGE_SIZE);
        if (oImage.SaveFile(strFile.c_str(), CQuorvelHexfile::eTypeIntel) != CQuorvelHexfile::eResultOk)
            Die("saving the image");
    }
    std::printf("\nWriting 1 MiB of Intel HEX, pages of 512 bytes\n\n"
                "| | best round | middle | worst | goal | |\n|---|---:|---:|---:|---:|---|\n");
    for (const int nPageTime : {2000, 500, 100}) {
        std::vector<double> anRounds;
        for (int i = 0; i < (bQuick ? 1 : 3) && (!bQuick || nPageTime == 100); ++i)
            anRounds.push_back(MeasureBusy(strFile, std::chrono::microseconds(nPageTime)));
        if (!anRounds.empty())
            Print(
                ("target busy, % of the writing time, " + std::to_string(nPageTime) + " us per page").c_str(),
                anRounds, 95);
    }
    std::vector<double> anRounds;
    for (int i = 0; i < (bQuick ? 2 : 20); ++i)
        anRounds.push_back(MeasureSpeed(strFile));
    Print("writing and verifying without delay, loading included, MB/s", anRounds, 25);
    std::filesystem::remove(strFile);
    return 0;
}

// Loading, saving and dumping a random image of 16 MiB: whole processes from file to file, side by side with
// objcopy and srec_cat on the same files, taking turns.
//
// usage: image_bench [ROUNDS]                     medians of so many rounds (11)
//        image_bench convert TYPE IN TYPE OUT     what is measured: load and save (types as in EType)
//        image_bench dump FILE                    prints milliseconds and bytes of text of dumps

#include "QuorvelHexfile.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr unsigned int IMAGE_SIZE = 16U << 20;

using CClock = std::chrono::steady_clock;

double MillisecondsSince(CClock::time_point oStart)
{
    return std::chrono::duration<double, std::milli>(CClock::now() - oStart).count();
}

double Median(std::vector<double> anValues)
{
    if (anValues.empty())
        return 0;
    std::sort(anValues.begin(), anValues.end());
    return anValues[anValues.size() / 2];
}

using CCommand = std::vector<std::string>;

struct SRun {
    double nMilliseconds = 0;
    long nPeakKiB = 0; // of the process; this one stays small, since a child starts with its parent's peak
    bool bOk = false;
};

SRun Run(const CCommand& astrCommand, const std::string& strOutput = "/dev/null")
{
    std::vector<char*> apArguments;
    for (const std::string& strArgument : astrCommand)
        apArguments.push_back(const_cast<char*>(strArgument.c_str()));
    apArguments.push_back(nullptr);
    posix_spawn_file_actions_t oActions;
    posix_spawn_file_actions_init(&oActions);
    posix_spawn_file_actions_addopen(&oActions, STDOUT_FILENO, strOutput.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    SRun oRun;
    pid_t nPid = 0;
    const auto oStart = CClock::now();
    const bool bStarted =
        posix_spawnp(&nPid, apArguments[0], &oActions, nullptr, apArguments.data(), environ) == 0;
    int nStatus = -1;
    rusage oUsage{};
    if (bStarted && wait4(nPid, &nStatus, 0, &oUsage) == nPid) {
        oRun.nMilliseconds = MillisecondsSince(oStart);
        oRun.nPeakKiB = oUsage.ru_maxrss;
        oRun.bOk = nStatus == 0;
    }
    posix_spawn_file_actions_destroy(&oActions);
    return oRun;
}

bool SameBytes(const std::string& strOne, const std::string& strOther)
{
    return Run({"cmp", "-s", strOne, strOther}).bOk;
}

int Convert(char** ppArguments)
{
    CQuorvelHexfile oImage;
    const auto fnType = [](const char* pText) {
        return static_cast<CQuorvelHexfile::EType>(std::atoi(pText));
    };
    if (oImage.LoadFile(ppArguments[1], fnType(ppArguments[0])) != 0 ||
        oImage.SaveFile(ppArguments[3], fnType(ppArguments[2])) != 0) {
        std::cerr << oImage.GetErrorMessage() << '\n';
        return 1;
    }
    return 0;
}

int Dump(const char* pFilename)
{
    CQuorvelHexfile oImage;
    if (oImage.LoadFile(pFilename, CQuorvelHexfile::eTypeBinary) != 0)
        return 1;
    const std::size_t nLine = CQuorvelHexfile::GetNumberOfBytesNeedForLine(16);
    for (const unsigned int nSize : {IMAGE_SIZE / 4, IMAGE_SIZE}) {
        const std::size_t nText = nLine * (nSize / 16);
        std::vector<char> acText(nText + 1);
        std::vector<double> anTimes;
        for (unsigned int i = 0; i < 5; ++i) {
            acText[0] = '\0';
            const auto oStart = CClock::now();
            oImage.GetPrintDump(acText.data(), 16, 0, nSize - 1);
            anTimes.push_back(MillisecondsSince(oStart));
        }
        if (acText[nText - 1] != '\n' || acText[nText] != '\0')
            return 1;
        std::cout << Median(anTimes) << ' ' << nText << '\n';
    }
    return 0;
}

struct SCase {
    const char* pTitle;
    double nGoal; // times as fast as objcopy
    std::array<CCommand, 3> aastrCommands;
    std::string strResult; // what must come out; empty: not compared
    std::array<std::vector<double>, 3> aanTimes{};
    std::vector<double> anPeaks{};
};

int RunAll(const std::string& strSelf, unsigned int nRounds)
{
    std::string strDirectory = (std::filesystem::temp_directory_path() / "image_bench.XXXXXX").string();
    if (mkdtemp(strDirectory.data()) == nullptr)
        return 1;
    struct CRemover {
        const std::string& m_strDirectory;
        ~CRemover()
        {
            std::error_code oError;
            std::filesystem::remove_all(m_strDirectory, oError);
        }
    } const oRemover{strDirectory};
    const std::string strBinary = strDirectory + "/image.bin";
    const std::string strIntel = strDirectory + "/image.hex";
    const std::string strMotorola = strDirectory + "/image.srec";
    const std::string strOut = strDirectory + "/out";
    {
        std::ofstream oFile(strBinary, std::ios::binary);
        std::mt19937_64 oRandom(20240607);
        for (unsigned int i = 0; i < IMAGE_SIZE; i += sizeof(std::uint64_t)) {
            const std::uint64_t nBytes = oRandom();
            oFile.write(reinterpret_cast<const char*>(&nBytes), sizeof nBytes);
        }
    }
    if (!Run({"objcopy", "-I", "binary", "-O", "ihex", strBinary, strIntel}).bOk ||
        !Run({"objcopy", "-I", "binary", "-O", "srec", strBinary, strMotorola}).bOk) {
        std::cerr << "image_bench: objcopy is needed (package binutils)\n";
        return 1;
    }

    std::vector<SCase> aoCases;
    aoCases.push_back({"Intel HEX in, binary out",
                       4,
                       {{{strSelf, "convert", "1", strIntel, "3", strOut},
                         {"objcopy", "-I", "ihex", "-O", "binary", strIntel, strOut},
                         {"srec_cat", strIntel, "-intel", "-o", strOut, "-binary"}}},
                       strBinary});
    aoCases.push_back({"S-record in, binary out",
                       2.5,
                       {{{strSelf, "convert", "2", strMotorola, "3", strOut},
                         {"objcopy", "-I", "srec", "-O", "binary", strMotorola, strOut},
                         {"srec_cat", strMotorola, "-motorola", "-o", strOut, "-binary"}}},
                       strBinary});
    aoCases.push_back({"binary in, Intel HEX out",
                       2,
                       {{{strSelf, "convert", "3", strBinary, "1", strOut},
                         {"objcopy", "-I", "binary", "-O", "ihex", strBinary, strOut},
                         {"srec_cat", strBinary, "-binary", "-o", strOut, "-intel"}}},
                       ""});
    for (unsigned int nRound = 0; nRound < nRounds; ++nRound) {
        for (SCase& oCase : aoCases) {
            for (std::size_t i = 0; i < oCase.aastrCommands.size(); ++i) {
                std::filesystem::remove(strOut);
                const SRun oRun = Run(oCase.aastrCommands[i]);
                if (!oRun.bOk || (!oCase.strResult.empty() && !SameBytes(strOut, oCase.strResult))) {
                    if (i == 2 && nRound == 0)
                        continue; // srec_cat is not installed
                    std::cerr << "image_bench: failed: " << oCase.aastrCommands[i][0] << ", " << oCase.pTitle
                              << '\n';
                    return 1;
                }
                oCase.aanTimes[i].push_back(oRun.nMilliseconds);
                if (i == 0)
                    oCase.anPeaks.push_back(static_cast<double>(oRun.nPeakKiB));
            }
        }
    }

    std::printf("| %u MiB, medians of %u | quorvel ms | objcopy ms | srec_cat ms | times objcopy | goal |\n"
                "|---|---|---|---|---|---|\n",
                IMAGE_SIZE >> 20, nRounds);
    for (const SCase& oCase : aoCases) {
        const double nOwn = Median(oCase.aanTimes[0]);
        const double nObjcopy = Median(oCase.aanTimes[1]);
        std::printf("| %s | %.1f | %.1f | %.1f | %.2f | >= %.1f |\n", oCase.pTitle, nOwn, nObjcopy,
                    Median(oCase.aanTimes[2]), nObjcopy / nOwn, oCase.nGoal);
    }
    std::printf("| peak memory of the first, times the image | %.2f | | | | <= 5 |\n",
                Median(aoCases[0].anPeaks) / (IMAGE_SIZE / 1024.0));

    const std::string strTimes = strDirectory + "/times";
    double nQuarter = 0;
    double nQuarterText = 0;
    double nWhole = 0;
    double nWholeText = 0;
    if (!Run({strSelf, "dump", strBinary}, strTimes).bOk ||
        !(std::ifstream(strTimes) >> nQuarter >> nQuarterText >> nWhole >> nWholeText)) {
        std::cerr << "image_bench: the dump failed\n";
        return 1;
    }
    std::printf("| GetPrintDump, MB of text a second | %.0f | | | | >= 150 |\n", nWholeText / nWhole / 1000);
    std::printf("| GetPrintDump, 16 MiB to 4 MiB in time | %.2f | | | | 4 when linear |\n",
                nWhole / nQuarter);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string strMode = argc > 1 ? argv[1] : "";
    if (strMode == "convert" && argc == 6)
        return Convert(argv + 2);
    if (strMode == "dump" && argc == 3)
        return Dump(argv[2]);
    // An option of the other benchmarks asks for a short run.
    const int nRounds = strMode.empty() ? 11 : std::atoi(strMode.c_str());
    return RunAll(std::filesystem::read_symlink("/proc/self/exe").string(),
                  static_cast<unsigned int>(std::max(nRounds, 1)));
}

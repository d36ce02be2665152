// Sends a configuration file to a test system, installs and selects it, and sets the boxes up.
//
//     test_system HOST
//
// Returns 0 when everything worked. HOST has all boxes of the test system.

#include "QuorvelClientTestSystemCOM.h"
#include "QuorvelClientTestSystemIO.h"
#include "QuorvelClientTestSystemPWR.h"
#include "QuorvelClientTestSystemRelay.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{

int g_nFailures = 0;

void Check(const char* pStep, int nRC)
{
    std::printf("%s: %s\n", pStep, CQuorvelClient::GetErrorMsg(nRC).c_str());
    g_nFailures += nRC != 0 ? 1 : 0;
}

// A file of two telegrams. The box compares its CRC-32, and so does the installation.
std::string MakeFile()
{
    const std::filesystem::path oPath = std::filesystem::temp_directory_path() / "quorvel_burn_in.cfg";
    std::ofstream oFile(oPath, std::ios::binary);
    for (int i = 0; i < 4000; ++i)
        oFile << "step " << i << " wait 10\n";
    return oPath.string();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    CQuorvelClientTestSystemCOM oCOM(5000);
    Check("connect", oCOM.Connect(argv[1], 0, 1, true));
    oCOM.Open();
    const std::string strFile = MakeFile();
    Check("send", oCOM.SendFile(strFile));
    Check("install", oCOM.InstallConfig("burn-in", strFile));
    std::filesystem::remove(strFile);

    bool bAvailable = false;
    unsigned int nValue = 0;
    std::string strActive;
    Check("select", oCOM.SetConfig("burn-in"));
    oCOM.IsConfigAvailable("burn-in", bAvailable, nValue);
    oCOM.GetConfig(strActive);
    std::printf("active: %s, %s\n", strActive.c_str(), bAvailable ? "installed" : "not installed");

    // The other boxes take arrays of 16-bit values; a box tells as many as there is room for.
    unsigned short anOutputs[] = {1000, 2000, 3000};
    unsigned short anVolts[] = {3300, 5000};
    unsigned short anRead[3] = {};
    CQuorvelClientTestSystemIO oIO(1000);
    CQuorvelClientTestSystemPWR oPWR(1000);
    CQuorvelClientTestSystemRelay oRelay(1000);
    for (CQuorvelClient* pBox : {static_cast<CQuorvelClient*>(&oIO), static_cast<CQuorvelClient*>(&oPWR),
                                 static_cast<CQuorvelClient*>(&oRelay)}) {
        Check("connect", pBox->Connect(argv[1], 0, 1, true));
        pBox->Open();
    }
    Check("outputs", oIO.SetValue(anOutputs, 3));
    Check("supplies", oPWR.SetValue(anVolts, 2));
    Check("relay 4", oRelay.SetRelay(4, true));
    Check("read", oIO.GetValue(anRead, 3));
    std::printf("outputs %d %d %d\n", anRead[0], anRead[1], anRead[2]);

    // What a refusal looks like, and a file that is not there.
    const int nTwice = oCOM.SetConfig("burn-in");
    const int nMissing = oCOM.SendFile("/nowhere/at/all");
    std::printf("again: 0x%04X %s\nmissing: 0x%04X %s\n", static_cast<unsigned int>(nTwice),
                CQuorvelClient::GetErrorMsg(nTwice).c_str(), static_cast<unsigned int>(nMissing),
                CQuorvelClient::GetErrorMsg(nMissing).c_str());
    return g_nFailures == 0 ? 0 : 1;
}

// Programs a text into the flash of a microcontroller behind a Renesas programmer, and verifies it.
//
//     renesas_flash HOST
//
// Returns 0 when the flash holds the text.

#include "DeviceManager.h"
#include "QuorvelClientRenesas.h"

#include <cstdio>
#include <string>

namespace
{

const std::string ID(7, '\xFF'); // of a target without protection
constexpr unsigned short PAGE = 256;

// A run on the target: identify it, erase it, write page by page, compare the checksum. The first failure ends
// it. The checksum is the gateway's: here the sum of the bytes, in 16 bits.
int Program(CQuorvelClientRenesas& oGateway, const std::string& strImage)
{
    char acVersion[9] = {}; // the answer has no terminator
    int nRC = oGateway.Init();
    if (nRC == 0)
        nRC = oGateway.CheckID(ID.data(), static_cast<unsigned char>(ID.size()));
    if (nRC == 0)
        nRC = oGateway.GetVersion(acVersion, 8);
    if (nRC == 0)
        nRC = oGateway.EraseAll();
    std::printf("target version \"%s\"\n", acVersion);

    const auto nPages = static_cast<unsigned short>((strImage.size() + PAGE - 1) / PAGE);
    for (unsigned short nPage = 0; nRC == 0 && nPage < nPages; ++nPage) {
        const std::string strPage =
            strImage.substr(nPage * std::size_t{PAGE}, PAGE); // the last may be shorter
        nRC = oGateway.WritePage(nPage, strPage.data(), static_cast<unsigned short>(strPage.size()));
    }

    unsigned short nExpected = 0;
    for (const char c : strImage)
        nExpected = static_cast<unsigned short>(nExpected + static_cast<unsigned char>(c));
    unsigned short nChecksum = 0;
    if (nRC == 0)
        nRC = oGateway.VerifyCheck(0, static_cast<unsigned short>(nPages * PAGE - 1), nChecksum);
    if (nRC == 0)
        std::printf("%d pages written, checksum 0x%04X is %s\n", nPages, nChecksum,
                    nChecksum == nExpected ? "right" : "wrong");
    return nRC;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }
    std::string strImage;
    for (int i = 0; i < 100; ++i)
        strImage += "Programmed page by page. ";

    // A handle keeps the client; erasing may take its time, so the time-out is ten seconds.
    int nHandle = 0;
    int nRC = CDeviceManager::OpenDevice(&nHandle, argv[1], 10000, eDeviceRenesas, 0, 1, true);
    if (nRC == 0) {
        auto& oGateway = static_cast<CQuorvelClientRenesas&>(*CDeviceManager::GetDevice(nHandle)->m_pClient);
        oGateway.Open();
        nRC = Program(oGateway, strImage);

        char acPage[PAGE];
        unsigned short nRead = 0;
        if (nRC == 0)
            nRC = oGateway.ReadPage(0, acPage, sizeof acPage, nRead);
        if (nRC == 0)
            std::printf("page 0: \"%s...\"\n", std::string(acPage, nRead).substr(0, 24).c_str());

        // The end of the run, also after a failure; here it shows what a failure looks like, too.
        oGateway.Complete();
        const int nLate = oGateway.ReadPage(0, acPage, sizeof acPage, nRead);
        std::printf("outside a run: 0x%04X %s\n", static_cast<unsigned int>(nLate),
                    CQuorvelClient::GetErrorMsg(nLate).c_str());
        CDeviceManager::CloseDevice(nHandle);
    }
    if (nRC != 0)
        std::printf("0x%08X %s\n", static_cast<unsigned int>(nRC), CQuorvelClient::GetErrorMsg(nRC).c_str());
    return nRC == 0 ? 0 : 1;
}

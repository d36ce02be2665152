// The group `spi`.

#include "Gateway.h"
#include "Groups.h"
#include "QuorvelClientSPI.h"
#include "Text.h"

namespace
{

constexpr std::size_t MAX_TRANSFER = 65527; // what an answer holds

class CSpiTransfer : public CVerb
{
  public:
    explicit CSpiTransfer(CLI::App& oGroup)
        : CVerb(oGroup, "transfer", "Transfer bytes in full duplex: as many are read as are written")
    {
        m_oApp.add_option("BYTES", m_astrBytes, "The bytes to write, in hex")->required();
        m_oApp.footer("Prints the bytes read, in hex.\n\nquorvel -g 192.168.0.10 spi transfer 9f 0 0 0");
    }

    int Run(CTool& oTool) override
    {
        const auto strBytes = ParseHex(fmt::format("{}", fmt::join(m_astrBytes, " ")));
        if (!strBytes || strBytes->empty() || strBytes->size() > MAX_TRANSFER)
            return oTool.Fail(eStatusUsage, "BYTES: 1 to 65527 bytes in hex, such as 9f 0 0 0");
        CGateway<CQuorvelClientSPI> oSpi(oTool);
        if (const int nStatus = oSpi.OpenGateway(); nStatus != 0)
            return nStatus;
        std::string strRead(strBytes->size(), '\0');
        const auto nLength = static_cast<unsigned short>(strRead.size());
        if (const int nStatus =
                oSpi.Check("transfer", oSpi.DataReq(strBytes->data(), nLength, strRead.data(), nLength));
            nStatus != 0)
            return nStatus;
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"bytes", ToHex(strRead, "")}});
        else
            fmt::print("{}\n", ToHex(strRead));
        return eStatusDone;
    }

  private:
    std::vector<std::string> m_astrBytes;
};

} // namespace

void AddSpi(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("spi", "The SPI gateway: bus, transfers, sequences, serial flash");
    oTool.AddVerb<CSpiTransfer>(oGroup);
}

// The group `canopen`.

#include "CanReceiver.h"
#include "Choice.h"
#include "File.h"
#include "Groups.h"
#include "Progress.h"
#include "QuorvelClientCAN.h"
#include "Text.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>

namespace
{

constexpr unsigned MAX_NODE = 127;
constexpr std::size_t MAX_OBJECT = 65522; // what a telegram holds
constexpr unsigned short SDO_READ = 0x0268;
constexpr unsigned short SDO_WRITE = 0x0269;
constexpr unsigned short SDO_READ_BLOCK = 0x026A;
constexpr unsigned short SDO_WRITE_BLOCK = 0x026B;
constexpr int SDO_TIMED_OUT = 0x02FC;
constexpr int SDO_ABORTED = 0x02FD;
constexpr unsigned char TO_MASTER = 0x80; // in the type of a PDO that is sent

struct SText {
    unsigned nCode;
    const char* pText;
};

constexpr std::array<SText, 26> ABORTS{{
    {0x05030000, "toggle bit not alternated"},
    {0x05040000, "the node has not answered in time"},
    {0x05040001, "unknown command"},
    {0x05040002, "invalid block size"},
    {0x05040003, "invalid sequence number"},
    {0x05040004, "CRC error"},
    {0x05040005, "out of memory"},
    {0x06010000, "unsupported access"},
    {0x06010001, "write only"},
    {0x06010002, "read only"},
    {0x06020000, "no such object"},
    {0x06040041, "cannot be mapped to a PDO"},
    {0x06040042, "PDO length exceeded"},
    {0x06040043, "parameter incompatible"},
    {0x06060000, "hardware error"},
    {0x06070010, "wrong length"},
    {0x06070012, "too long"},
    {0x06070013, "too short"},
    {0x06090011, "no such subindex"},
    {0x06090030, "value out of range"},
    {0x06090031, "value too high"},
    {0x06090032, "value too low"},
    {0x08000000, "general error"},
    {0x08000020, "cannot be stored"},
    {0x08000021, "local control"},
    {0x08000022, "not in this state"},
}};

// By the high byte; without an entry of its own, by its upper half.
constexpr std::array<SText, 19> EMERGENCIES{{{0x00, "no error"},
                                             {0x10, "generic error"},
                                             {0x20, "current"},
                                             {0x21, "current at the input"},
                                             {0x22, "current inside"},
                                             {0x23, "current at the output"},
                                             {0x30, "voltage"},
                                             {0x31, "mains voltage"},
                                             {0x32, "voltage inside"},
                                             {0x33, "output voltage"},
                                             {0x40, "temperature"},
                                             {0x50, "hardware"},
                                             {0x60, "software"},
                                             {0x70, "additional modules"},
                                             {0x80, "monitoring"},
                                             {0x81, "communication"},
                                             {0x82, "protocol"},
                                             {0x90, "external error"},
                                             {0xF0, "additional functions or device"}}};

template<class TTexts>
const char* FindText(const TTexts& aoTexts, unsigned nCode)
{
    const auto pFound =
        std::ranges::find_if(aoTexts, [nCode](const SText& oText) { return oText.nCode == nCode; });
    return pFound != aoTexts.end() ? pFound->pText : nullptr;
}

const char* GetEmergencyText(unsigned nCode)
{
    const char* const pText = FindText(EMERGENCIES, nCode >> 8);
    if (pText != nullptr)
        return pText;
    const char* const pClass = FindText(EMERGENCIES, nCode >> 8 & 0xF0U);
    return pClass != nullptr ? pClass : "reserved";
}

std::string GetStateText(unsigned nState)
{
    switch (nState) {
    case 0:
        return "boot-up";
    case 4:
        return "stopped";
    case 5:
        return "operational";
    case 127:
        return "pre-operational";
    default:
        return fmt::format("state {}", nState);
    }
}

// Opens the gateway and switches its master mode on, which is said.
template<class TCan>
int OpenMaster(CTool& oTool, TCan& oCan)
{
    int nStatus = oCan.OpenGateway();
    unsigned char nMode = 0;
    if (nStatus == 0)
        nStatus = oCan.Check("read the CANopen mode", oCan.CANopenGetConfig(nMode), 1);
    if (nStatus != 0 || nMode != 0)
        return nStatus;
    nStatus = oCan.Check("switch the CANopen master mode on", oCan.CANopenSetConfig(1));
    if (nStatus == 0)
        oTool.Note("The gateway's CANopen master mode is now on, for all its clients (off again: quorvel can "
                   "config --canopen off)");
    return nStatus;
}

// An object of a node.
struct SObject {
    unsigned nNode = 1;
    unsigned short nIndex = 0;
    unsigned char nSubindex = 0;

    std::string GetText() const { return fmt::format("0x{:04X}:{} of node {}", nIndex, nSubindex, nNode); }
};

// Requests of the CANopen master. SDO answers are taken as they are: whole, and with abort codes.
class CMaster : public CGateway<CQuorvelClientCAN>
{
  public:
    explicit CMaster(CTool& oTool) : CGateway<CQuorvelClientCAN>(oTool), m_oTool(oTool) {}

    /**
     * Reads or writes an object.
     * @param nCode    the request
     * @param nTimeout what the node has, in milliseconds
     * @param strMore  what the request has behind the time-out
     * @param strBytes receives the object's bytes, or those of the abort code
     * @return result code
     */
    int Sdo(unsigned short nCode, const SObject& oObject, unsigned short nTimeout, const std::string& strMore,
            std::string& strBytes)
    {
        std::string strData;
        if (nCode == SDO_WRITE)
            strData += static_cast<char>(strMore.size()); // the type: how many bytes
        strData += static_cast<char>(oObject.nNode);
        strData += CQuorvelMsg::ToChar(oObject.nIndex);
        strData += static_cast<char>(oObject.nSubindex);
        strData += CQuorvelMsg::ToChar(nTimeout);
        strData += strMore;
        if (nCode == SDO_WRITE)
            strData.append(4 - strMore.size(), '\0');
        const unsigned nWait = nTimeout + m_oTool.GetOptions().nTimeout; // the node's, and the gateway's
        CQuorvelMsg oCnf;
        int nRC = SendMsg(CQuorvelMsg(nCode, TakeMsgID(), std::move(strData)), oCnf, &nWait);
        if (nRC == 0)
            nRC = GetCnfRetCode(oCnf);
        strBytes = oCnf.GetData().substr(std::min<std::size_t>(2, oCnf.GetData().size()));
        return nRC;
    }

    /// As Sdo with the time-out of the command line; reports failures. @return the exit status
    int CheckSdo(unsigned short nCode, const SObject& oObject, const std::string& strMore,
                 std::string& strBytes)
    {
        const auto nTimeout = static_cast<unsigned short>(std::min(m_oTool.GetOptions().nTimeout, 0xFFFFU));
        const int nRC = Sdo(nCode, oObject, nTimeout, strMore, strBytes);
        const bool bRead = nCode == SDO_READ || nCode == SDO_READ_BLOCK;
        std::string strOperation = fmt::format("{} {}", bRead ? "read" : "write", oObject.GetText());
        if ((nRC == SDO_ABORTED || nRC == SDO_TIMED_OUT) && strBytes.size() >= 4) {
            unsigned nAbort = 0;
            CQuorvelMsg::FromChar(nAbort, strBytes.data());
            const char* const pText = FindText(ABORTS, nAbort);
            strOperation += fmt::format(": SDO abort 0x{:08X}{}{}", nAbort, pText != nullptr ? ", " : "",
                                        pText != nullptr ? pText : "");
        }
        return Check(strOperation, nRC, bRead ? MIN_READ : 0);
    }

    /// What the answer to reading holds at least: the status, and a byte of the object.
    static constexpr std::size_t MIN_READ = 2;

  private:
    CTool& m_oTool;
};

CLI::Option* AddNode(CLI::App& oApp, unsigned& nNode)
{
    return oApp.add_option("NODE", nNode, "The node, 1 to 127")
        ->required()
        ->type_name("")
        ->check(CLI::Range(1U, MAX_NODE).description(""));
}

class CNmt : public CVerb
{
  public:
    explicit CNmt(CLI::App& oGroup) : CVerb(oGroup, "nmt", "Start, stop or reset nodes")
    {
        m_oApp.add_option("NODE", m_strNode, "The node, 1 to 127, or all")->type_name("")->required();
        m_oApp
            .add_option("COMMAND", m_nCommand,
                        "start, stop, pre-operational, reset-node or reset-communication")
            ->required()
            ->type_name("")
            ->transform(Choice(COMMANDS));
        m_oApp.footer("Nodes do not confirm such a command; events shows their states.\n\n"
                      "quorvel -g 192.168.0.10 canopen nmt all start");
    }

    int Run(CTool& oTool) override
    {
        const auto nNode = m_strNode == "all" ? 0 : ParseNumber(m_strNode, MAX_NODE);
        if (!nNode || (*nNode == 0 && m_strNode != "all"))
            return oTool.Fail(eStatusUsage, "NODE: 1 to 127, or all");
        CMaster oCan(oTool);
        if (const int nStatus = OpenMaster(oTool, oCan); nStatus != 0)
            return nStatus;
        return oCan.Check(
            "send the NMT command",
            oCan.CANopenSendNMT(static_cast<unsigned char>(*nNode), static_cast<unsigned char>(m_nCommand)));
    }

  private:
    inline static const std::map<std::string, unsigned> COMMANDS{{"start", 0x01},
                                                                 {"stop", 0x02},
                                                                 {"pre-operational", 0x80},
                                                                 {"reset-node", 0x81},
                                                                 {"reset-communication", 0x82}};
    std::string m_strNode;
    unsigned m_nCommand = 0;
};

class CSync : public CVerb
{
  public:
    explicit CSync(CLI::App& oGroup) : CVerb(oGroup, "sync", "Send SYNC, once or again and again")
    {
        m_oApp.add_option("--period", m_nPeriod, "From now on send it every MS milliseconds; 0: no more")
            ->type_name("MS")
            ->check(CLI::Range(0U, 0xFFFFU).description(""));
        m_oApp.footer(
            "With --period the gateway goes on by itself, until the period is set to 0 or the master "
            "mode is switched off.\n\nquorvel -g 192.168.0.10 canopen sync --period 100");
    }

    int Run(CTool& oTool) override
    {
        CMaster oCan(oTool);
        if (const int nStatus = OpenMaster(oTool, oCan); nStatus != 0)
            return nStatus;
        if (m_nPeriod)
            return oCan.Check("set the SYNC period",
                              oCan.CANopenSetSYNCMode(static_cast<unsigned short>(*m_nPeriod)));
        return oCan.Check("send SYNC", oCan.CANopenSendSYNC());
    }

  private:
    std::optional<unsigned> m_nPeriod;
};

class CScan : public CVerb
{
  public:
    explicit CScan(CLI::App& oGroup) : CVerb(oGroup, "scan", "List the nodes that answer")
    {
        m_oApp.add_option("FIRST", m_nFirst, "The first node")
            ->type_name("")
            ->capture_default_str()
            ->check(CLI::Range(1U, MAX_NODE).description(""));
        m_oApp.add_option("LAST", m_nLast, "The last node, included")
            ->type_name("")
            ->capture_default_str()
            ->check(CLI::Range(1U, MAX_NODE).description(""));
        m_oApp.add_option("--wait", m_nWait, "How long a node has to answer")
            ->type_name("MS")
            ->capture_default_str()
            ->check(CLI::Range(1U, 0xFFFFU).description(""));
        m_oApp.footer("Reads the device type (0x1000) of every node, and the name (0x1008) of those that "
                      "answer. Prints "
                      "node, device type and name; the device type is - when the node refuses to tell it.\n\n"
                      "quorvel -g 192.168.0.10 canopen scan 1 32");
    }

    int Run(CTool& oTool) override
    {
        if (m_nFirst > m_nLast)
            return oTool.Fail(eStatusUsage, "FIRST is above LAST");
        CMaster oCan(oTool);
        if (const int nStatus = OpenMaster(oTool, oCan); nStatus != 0)
            return nStatus;
        CProgress oProgress(oTool, "Scanning", m_nLast - m_nFirst + 1);
        std::vector<SFound> aoFound;
        for (unsigned nNode = m_nFirst; nNode <= m_nLast; ++nNode) {
            SFound oFound{nNode, {}, {}};
            const int nRC = oCan.Sdo(SDO_READ, {nNode, 0x1000, 0}, GetWait(), {}, oFound.strType);
            if (nRC != SDO_TIMED_OUT && nRC != SDO_ABORTED) {
                if (const int nStatus = oCan.Check(fmt::format("ask node {}", nNode), nRC, CMaster::MIN_READ);
                    nStatus != 0)
                    return nStatus;
            }
            oProgress.Update(nNode - m_nFirst + 1);
            if (nRC == SDO_TIMED_OUT)
                continue;
            if (nRC == SDO_ABORTED || oFound.strType.size() != 4)
                oFound.strType.clear();
            if (oCan.Sdo(SDO_READ, {nNode, 0x1008, 0}, GetWait(), {}, oFound.strName) != 0)
                oFound.strName.clear();
            aoFound.push_back(oFound);
        }
        oProgress.Finish();
        for (const SFound& oFound : aoFound)
            Print(oTool, oFound);
        return eStatusDone;
    }

  private:
    struct SFound {
        unsigned nNode;
        std::string strType;
        std::string strName;
    };

    unsigned short GetWait() const { return static_cast<unsigned short>(m_nWait); }

    static void Print(CTool& oTool, const SFound& oFound)
    {
        std::string strType = "-";
        CJson oType;
        if (!oFound.strType.empty()) {
            unsigned nType = 0;
            CQuorvelMsg::FromChar(nType, oFound.strType.data());
            strType = fmt::format("0x{:08X}", nType);
            oType = nType;
        }
        if (oTool.GetOptions().bJson)
            CTool::PrintJson({{"node", oFound.nNode}, {"device_type", oType}, {"name", oFound.strName}});
        else
            fmt::print("{:3}  {:<10}  {}\n", oFound.nNode, strType, ToHarmless(oFound.strName));
    }

    unsigned m_nFirst = 1;
    unsigned m_nLast = MAX_NODE;
    unsigned m_nWait = 50;
};

// The type of an object's value.
struct SType {
    std::size_t nBytes; // 0: as many as there are
    bool bSigned;
    bool bText;
};

const std::map<std::string, SType> TYPES{{"hex", {0, false, false}}, {"text", {0, false, true}},
                                         {"u8", {1, false, false}},  {"u16", {2, false, false}},
                                         {"u32", {4, false, false}}, {"i8", {1, true, false}},
                                         {"i16", {2, true, false}},  {"i32", {4, true, false}}};

// What reading and writing of objects have in common.
class CSdoVerb : public CVerb
{
  public:
    CSdoVerb(CLI::App& oGroup, const std::string& strName, const std::string& strText)
        : CVerb(oGroup, strName, strText)
    {
        AddNode(m_oApp, m_oObject.nNode);
        m_oApp.add_option("INDEX[:SUB]", m_strIndex, "The object, such as 0x1018:1; without SUB 0")
            ->type_name("")
            ->required();
    }

  protected:
    void AddOptions()
    {
        m_oApp.add_option("-t,--type", m_strType, "What the bytes are; numbers are little-endian")
            ->type_name("hex|text|u8|u16|u32|i8|i16|i32")
            ->capture_default_str()
            ->check(CLI::IsMember(TYPES).description(""));
        m_oApp.add_flag("-b,--block", m_bBlock, "Use the block transfer, also for a short object");
    }

    const SType& GetType() const { return TYPES.at(m_strType); }

    int ParseObject(CTool& oTool)
    {
        const std::size_t nColon = m_strIndex.find(':');
        const auto nIndex = ParseNumber(m_strIndex.substr(0, nColon), 0xFFFF);
        const auto nSubindex = nColon == std::string::npos ? std::optional<std::uint64_t>(0)
                                                           : ParseNumber(m_strIndex.substr(nColon + 1), 0xFF);
        if (!nIndex || !nSubindex)
            return oTool.Fail(eStatusUsage,
                              Quote(m_strIndex) + ": an object is INDEX or INDEX:SUB, such as 0x1018:1");
        m_oObject.nIndex = static_cast<unsigned short>(*nIndex);
        m_oObject.nSubindex = static_cast<unsigned char>(*nSubindex);
        return eStatusDone;
    }

    SObject m_oObject;
    bool m_bBlock = false;
    std::string m_strFile;

  private:
    std::string m_strIndex;
    std::string m_strType = "hex";
};

class CSdoRead : public CSdoVerb
{
  public:
    explicit CSdoRead(CLI::App& oGroup) : CSdoVerb(oGroup, "read", "Read an object of a node")
    {
        AddOptions();
        m_oApp.add_option("-f,--file", m_strFile, "Write the bytes into this file, - for standard output")
            ->type_name("FILE");
        m_oApp.footer(
            "Prints the value. The node has --timeout milliseconds for the whole transfer, at most 65535. "
            "When "
            "it refuses, the status is 1 and the abort code is told; when the object has not the size of the "
            "type, the status is 3.\n\nWith --json: node, index, subindex, bytes, and value for numbers and "
            "text.\n\nquorvel -g 192.168.0.10 canopen sdo read 1 0x1008 -t text\n\n"
            "quorvel -g 192.168.0.10 canopen sdo read 1 0x2010 -b -f memory.bin");
    }

    int Run(CTool& oTool) override
    {
        if (const int nStatus = ParseObject(oTool); nStatus != 0)
            return nStatus;
        CMaster oCan(oTool);
        if (const int nStatus = OpenMaster(oTool, oCan); nStatus != 0)
            return nStatus;
        std::string strBytes;
        if (const int nStatus = oCan.CheckSdo(m_bBlock ? SDO_READ_BLOCK : SDO_READ, m_oObject, {}, strBytes);
            nStatus != 0)
            return nStatus;
        if (!m_strFile.empty()) {
            COutputFile oFile(oTool);
            if (const int nStatus = oFile.Open(m_strFile); nStatus != 0)
                return nStatus;
            oFile.Write(strBytes);
            return oFile.Commit();
        }
        return Print(oTool, strBytes);
    }

  private:
    int Print(CTool& oTool, const std::string& strBytes) const
    {
        const SType& oType = GetType();
        if (oType.nBytes != 0 && strBytes.size() != oType.nBytes)
            return oTool.Fail(eStatusMismatch,
                              fmt::format("{}: {} bytes instead of {}: {}", m_oObject.GetText(),
                                          strBytes.size(), oType.nBytes, ToHex(strBytes)));
        std::int64_t nValue = 0;
        for (std::size_t i = oType.nBytes; i-- > 0;)
            nValue = nValue << 8 | static_cast<unsigned char>(strBytes[i]);
        const std::int64_t nLimit = std::int64_t{1} << (8 * oType.nBytes);
        if (oType.bSigned && nValue >= nLimit / 2)
            nValue -= nLimit;
        if (oTool.GetOptions().bJson) {
            CJson oData{{"node", m_oObject.nNode},
                        {"index", m_oObject.nIndex},
                        {"subindex", m_oObject.nSubindex},
                        {"bytes", ToHex(strBytes, "")}};
            if (oType.nBytes != 0)
                oData["value"] = nValue;
            else if (oType.bText)
                oData["value"] = strBytes;
            CTool::PrintJson(oData);
        } else if (oType.nBytes != 0) {
            fmt::print("{}\n", nValue);
        } else {
            fmt::print("{}\n", oType.bText ? ToHarmless(strBytes, true) : ToHex(strBytes));
        }
        return eStatusDone;
    }
};

class CSdoWrite : public CSdoVerb
{
  public:
    explicit CSdoWrite(CLI::App& oGroup) : CSdoVerb(oGroup, "write", "Write an object of a node")
    {
        m_oApp.add_option("VALUE", m_astrValue, "The value, or bytes in hex as they are sent")->type_name("");
        AddOptions();
        m_oApp.add_option("-f,--file", m_strFile, "Take the bytes from this file, - for standard input")
            ->type_name("FILE");
        m_oApp.footer(
            "More than 4 bytes are written with the block transfer. At most 65522 bytes. Write a negative "
            "value behind --. The time-out and the status are as for read.\n\n"
            "quorvel -g 192.168.0.10 canopen sdo write 1 0x1017 500 -t u16\n\n"
            "quorvel -g 192.168.0.10 canopen sdo write -t i16 -- 1 0x2001 -40\n\n"
            "quorvel -g 192.168.0.10 canopen sdo write 1 0x2010 -f memory.bin");
    }

    int Run(CTool& oTool) override
    {
        if (const int nStatus = ParseObject(oTool); nStatus != 0)
            return nStatus;
        if (m_astrValue.empty() == m_strFile.empty())
            return oTool.Fail(eStatusUsage, "VALUE or --file, one of them");
        std::string strBytes;
        const int nStatus = m_strFile.empty() ? ParseValue(oTool, strBytes)
                                              : ReadFile(oTool, m_strFile, SFileLimit{MAX_OBJECT}, strBytes);
        if (nStatus != 0)
            return nStatus;
        if (strBytes.empty() || strBytes.size() > MAX_OBJECT)
            return oTool.Fail(m_strFile.empty() ? eStatusUsage : eStatusFile,
                              fmt::format("{} bytes; an object has 1 to {}", strBytes.size(), MAX_OBJECT));
        CMaster oCan(oTool);
        if (const int nOpened = OpenMaster(oTool, oCan); nOpened != 0)
            return nOpened;
        std::string strAnswer;
        return oCan.CheckSdo(m_bBlock || strBytes.size() > 4 ? SDO_WRITE_BLOCK : SDO_WRITE, m_oObject,
                             strBytes, strAnswer);
    }

  private:
    int ParseValue(CTool& oTool, std::string& strBytes) const
    {
        const SType& oType = GetType();
        const std::string strValue = fmt::format("{}", fmt::join(m_astrValue, " "));
        if (oType.bText) {
            strBytes = strValue;
            return eStatusDone;
        }
        if (oType.nBytes == 0) {
            const auto oBytes = ParseHex(strValue);
            if (!oBytes)
                return oTool.Fail(eStatusUsage, Quote(strValue) + ": bytes in hex, or a type: -t u16");
            strBytes = *oBytes;
            return eStatusDone;
        }
        const std::uint64_t nLimit = std::uint64_t{1} << (8 * oType.nBytes);
        const bool bNegative = oType.bSigned && strValue.starts_with('-');
        const auto nMagnitude = ParseNumber(std::string_view(strValue).substr(bNegative ? 1 : 0),
                                            oType.bSigned ? nLimit / 2 - (bNegative ? 0 : 1) : nLimit - 1);
        if (!nMagnitude)
            return oTool.Fail(eStatusUsage,
                              fmt::format("{}: a number of {} bits, {}", Quote(strValue), 8 * oType.nBytes,
                                          oType.bSigned ? "signed" : "unsigned"));
        const std::uint64_t nValue = bNegative ? nLimit - *nMagnitude : *nMagnitude;
        for (std::size_t i = 0; i < oType.nBytes; ++i)
            strBytes += static_cast<char>(nValue >> (8 * i) & 0xFF);
        return eStatusDone;
    }

    std::vector<std::string> m_astrValue;
};

class CPdoSend : public CVerb
{
  public:
    explicit CPdoSend(CLI::App& oGroup) : CVerb(oGroup, "send", "Send a PDO")
    {
        AddNode(m_oApp, m_nNode);
        m_oApp
            .add_option("TYPE", m_nType,
                        "rpdo1 to rpdo4, which the node receives; or tpdo1 to tpdo4, in the node's place")
            ->required()
            ->type_name("")
            ->transform(Choice(PDOS));
        m_oApp.add_option("BYTES", m_astrBytes, "Up to 8 bytes, in hex")->type_name("");
        m_oApp.footer("quorvel -g 192.168.0.10 canopen pdo send 1 rpdo1 01 02 03 04");
    }

    int Run(CTool& oTool) override
    {
        const auto strBytes = ParseHex(fmt::format("{}", fmt::join(m_astrBytes, " ")));
        if (!strBytes || strBytes->size() > 8)
            return oTool.Fail(eStatusUsage, "BYTES: up to 8 bytes in hex");
        CMaster oCan(oTool);
        if (const int nStatus = OpenMaster(oTool, oCan); nStatus != 0)
            return nStatus;
        return oCan.Check("send the PDO", oCan.CANopenSendPDO(static_cast<unsigned char>(m_nNode),
                                                              static_cast<unsigned char>(m_nType),
                                                              static_cast<unsigned char>(strBytes->size()),
                                                              strBytes->data()));
    }

  private:
    // In requests the types are those of the node that receives; indications have them the other way round.
    inline static const std::map<std::string, unsigned> PDOS{{"rpdo1", 1},
                                                             {"rpdo2", 2},
                                                             {"rpdo3", 3},
                                                             {"rpdo4", 4},
                                                             {"tpdo1", TO_MASTER | 1},
                                                             {"tpdo2", TO_MASTER | 2},
                                                             {"tpdo3", TO_MASTER | 3},
                                                             {"tpdo4", TO_MASTER | 4}};
    unsigned m_nNode = 1;
    unsigned m_nType = 1;
    std::vector<std::string> m_astrBytes;
};

class CEvents : public CVerb
{
  public:
    explicit CEvents(CLI::App& oGroup)
        : CVerb(oGroup, "events", "Show heartbeats, emergencies, PDOs and SYNC as they come")
    {
        m_oApp.add_option("-n", m_nCount, "End after so many events")
            ->type_name("COUNT")
            ->check(CLI::Range(1U, 0xFFFFFFFFU).description(""));
        m_oApp.add_option("-T", m_nSilence, "End after so many milliseconds without an event")
            ->type_name("MS")
            ->check(CLI::Range(1U, 0x7FFFFFFFU).description(""));
        m_oApp
            .add_option(
                "-t", m_strTime,
                "Time of each: a absolute, d since the one before, z since the first, A with the date")
            ->type_name("a|d|z|A")
            ->check(CLI::IsMember({"a", "d", "z", "A"}).description(""));
        m_oApp.footer(
            "Prints one line for each event. tpdo are those that nodes send, rpdo those that another master "
            "sends. A frame that belongs to no service is shown as can dump -L shows it. The time is that of "
            "the reception.\n\nWith --json: time, event and what the event has: node, state, toggle, code, "
            "text, register, pdo, data, value, frame.\n\nCtrl-C ends (status 130), -n and -T end with status "
            "0.\n\nquorvel -g 192.168.0.10 canopen events -tz");
    }

    int Run(CTool& oTool) override
    {
        CCanReceiver oCan(oTool, QUEUE);
        if (const int nStatus = OpenMaster(oTool, oCan); nStatus != 0)
            return nStatus;
        oTool.Note(fmt::format("Listening on {} of {}", GetCanName(oTool), oTool.GetOptions().strHost));
        CCanTime oTime(m_strTime.empty() ? 'a' : m_strTime[0]);
        std::vector<SCanIndication> aoTaken;
        unsigned nShown = 0;
        while (true) {
            std::optional<std::chrono::steady_clock::time_point> oUntil;
            if (m_nSilence != 0)
                oUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(m_nSilence);
            std::uint64_t nDropped = 0;
            const auto eWait = oCan.Take(aoTaken, oUntil, nDropped);
            for (const SCanIndication& oIndication : aoTaken) {
                Describe(oIndication);
                if (m_strText.empty())
                    continue;
                if (oTool.GetOptions().bJson) {
                    m_oData["time"] = static_cast<double>(oIndication.nTime) / 1e9;
                    CTool::PrintJson(m_oData);
                } else {
                    std::string strLine;
                    if (!m_strTime.empty())
                        oTime.Append(strLine, oIndication.nTime);
                    fmt::print("{}{}\n", strLine, m_strText);
                }
                if (++nShown == m_nCount)
                    return eStatusDone;
            }
            if (const int nStatus = oTool.Flush(); nStatus != 0)
                return nStatus;
            if (nDropped != 0)
                oTool.Warn(fmt::format("{} events were lost", nDropped));
            if (eWait == CCanReceiver::eTimedOut)
                return eStatusDone;
            if (eWait == CCanReceiver::eEnded)
                return oCan.FailEnded();
        }
    }

  private:
    static constexpr std::size_t QUEUE = 100'000;

    // An indication as text and as JSON; no text for what is no event.
    void Describe(const SCanIndication& oIndication)
    {
        const unsigned nNode = oIndication.Byte(0);
        m_strText.clear();
        switch (oIndication.nCode) {
        case eCanSync:
            m_strText = nNode == 0 ? "sync" : fmt::format("sync {}", nNode);
            m_oData = {{"event", "sync"}, {"value", nNode}};
            break;
        case eCanGuard: {
            const bool bToggle = (oIndication.Byte(1) & 0x80U) != 0;
            const std::string strState = GetStateText(oIndication.Byte(1) & 0x7FU);
            m_strText = fmt::format("node {:3}  {}{}", nNode, strState, bToggle ? ", toggle bit set" : "");
            m_oData = {{"event", "state"}, {"node", nNode}, {"state", strState}, {"toggle", bToggle}};
            break;
        }
        case eCanEmcy: {
            const unsigned nCode = oIndication.Byte(1) | unsigned{oIndication.Byte(2)} << 8;
            const std::string strData =
                oIndication.strData.substr(std::min<std::size_t>(4, oIndication.strData.size()), 5);
            m_strText = fmt::format("node {:3}  emergency 0x{:04X}, {}; register 0x{:02X}, data {}", nNode,
                                    nCode, GetEmergencyText(nCode), oIndication.Byte(3), ToHex(strData));
            m_oData = {{"event", "emergency"},
                       {"node", nNode},
                       {"code", nCode},
                       {"text", GetEmergencyText(nCode)},
                       {"register", oIndication.Byte(3)},
                       {"data", ToHex(strData, "")}};
            break;
        }
        case eCanPdo: {
            const std::string strPdo = fmt::format(
                "{}pdo{}", (oIndication.Byte(1) & TO_MASTER) != 0 ? 'r' : 't', oIndication.Byte(1) & 0x7F);
            const std::string strData = oIndication.strData.substr(
                std::min<std::size_t>(3, oIndication.strData.size()), oIndication.Byte(2));
            m_strText = fmt::format("node {:3}  {} {}", nNode, strPdo, ToHex(strData));
            m_oData = {{"event", "pdo"}, {"node", nNode}, {"pdo", strPdo}, {"data", ToHex(strData, "")}};
            break;
        }
        default: {
            SCanRecord oRecord;
            if (!GetRecord(oIndication, oRecord))
                return;
            std::string strFrame;
            AppendFrame(strFrame, oRecord.oFrame);
            m_strText = "frame " + strFrame;
            m_oData = {{"event", "frame"}, {"frame", strFrame}};
        }
        }
    }

    unsigned m_nCount = 0;
    unsigned m_nSilence = 0;
    std::string m_strTime;
    std::string m_strText;
    CJson m_oData;
};

} // namespace

void AddCanOpen(CTool& oTool)
{
    CLI::App& oGroup = oTool.AddGroup("canopen", "The CAN gateway as CANopen master: nodes, objects, events");
    const auto fnSubgroup = [&oGroup](const std::string& strName, const std::string& strText) -> CLI::App& {
        CLI::App& oSubgroup = *oGroup.add_subcommand(strName, strText);
        oSubgroup.require_subcommand(1);
        return oSubgroup;
    };
    oTool.AddVerb<CNmt>(oGroup);
    oTool.AddVerb<CSync>(oGroup);
    oTool.AddVerb<CScan>(oGroup);
    CLI::App& oSdo = fnSubgroup("sdo", "Read and write objects of nodes");
    oTool.AddVerb<CSdoRead>(oSdo);
    oTool.AddVerb<CSdoWrite>(oSdo);
    oTool.AddVerb<CPdoSend>(fnSubgroup("pdo", "Send PDOs"));
    oTool.AddVerb<CEvents>(oGroup);
}

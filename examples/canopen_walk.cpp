// Walks the object dictionary of a CANopen node through a CAN gateway in its master mode.
//
//     canopen_walk HOST
//
// Starts node 1, reads objects of several types, writes and reads a large one, exchanges PDOs, and waits for
// the node's heartbeat and emergency. Returns 0 when all of it worked.

#include "QuorvelClientCANDll.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr unsigned char NODE = 1;
constexpr unsigned short TIMEOUT = 500; // milliseconds, for one SDO transfer

// Events arrive on their own; the readers return -1 until one is there.
template<class TReader>
bool WaitFor(TReader fnReader)
{
    for (int i = 0; i < 2000; ++i) {
        if (fnReader() >= 0)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

// The client adds the bytes of an SDO value up as signed ones; this takes the sum apart again.
unsigned int FromSum(unsigned int nSum)
{
    unsigned int nValue = 0;
    for (unsigned int nShift = 0; nShift < 32; nShift += 8) {
        const auto nByte = static_cast<unsigned char>(nSum >> nShift);
        nValue |= static_cast<unsigned int>(nByte) << nShift;
        nSum -= static_cast<unsigned int>(static_cast<signed char>(nByte)) << nShift;
    }
    return nValue;
}

int ReadObject(CQuorvelClientCANDll& oClient, unsigned short nIndex, unsigned char nSubindex,
               unsigned int& nValue)
{
    unsigned char nStatus = 0;
    const int nRC = oClient.CANopenSendSDORead(NODE, nIndex, nSubindex, TIMEOUT, nStatus, nValue);
    nValue = FromSum(nValue);
    return nRC;
}

int WriteObject(CQuorvelClientCANDll& oClient, unsigned short nIndex, unsigned char nBytes,
                unsigned int nValue)
{
    unsigned char nStatus = 0;
    unsigned int nReturned = 0;
    return oClient.CANopenSendSDOWrite(nBytes, NODE, nIndex, 0, TIMEOUT, nValue, nStatus, nReturned);
}

int Failed(const char* pWhat, int nRC)
{
    std::printf("%s: 0x%08X %s\n", pWhat, static_cast<unsigned int>(nRC),
                CQuorvelClient::GetErrorMsg(nRC).c_str());
    return 1;
}

int NothingCame(const char* pWhat)
{
    std::printf("%s: none came\n", pWhat);
    return 1;
}

int Walk(CQuorvelClientCANDll& oClient)
{
    const struct {
        const char* pName;
        unsigned short nIndex;
        unsigned char nSubindex;
        bool bSigned16;
    } aoObjects[] = {{"device type", 0x1000, 0, false},    {"error register", 0x1001, 0, false},
                     {"vendor", 0x1018, 1, false},         {"product", 0x1018, 2, false},
                     {"revision", 0x1018, 3, false},       {"serial number", 0x1018, 4, false},
                     {"PDO identifier", 0x1800, 1, false}, {"temperature", 0x2001, 0, true}};
    for (const auto& oObject : aoObjects) {
        unsigned int nValue = 0;
        const int nRC = ReadObject(oClient, oObject.nIndex, oObject.nSubindex, nValue);
        if (nRC != 0)
            return Failed(oObject.pName, nRC);
        std::printf("%04X.%u %s ", oObject.nIndex, oObject.nSubindex, oObject.pName);
        if (oObject.bSigned16)
            std::printf("%d\n", static_cast<short>(nValue));
        else
            std::printf("0x%08X\n", nValue);
    }
    unsigned int nValue = 0;
    Failed("3000.0", ReadObject(oClient, 0x3000, 0, nValue)); // this node has no such object
    return 0;
}

int Blocks(CQuorvelClientCANDll& oClient)
{
    // A byte more than is needed: reading stores the status first and leaves the last byte out.
    std::vector<unsigned char> anWritten(4001);
    for (std::size_t i = 0; i < anWritten.size(); ++i)
        anWritten[i] = static_cast<unsigned char>(i % 251);
    const auto nSize = static_cast<unsigned short>(anWritten.size());
    unsigned char nStatus = 0;
    unsigned int nReturned = 0;
    int nRC = oClient.CANopenSendSDOWriteBlock(NODE, 0x2010, 0, TIMEOUT, nSize, anWritten.data(), nStatus,
                                               nReturned);
    if (nRC != 0)
        return Failed("block write", nRC);
    std::vector<unsigned char> anRead(nSize);
    unsigned short nLen = 0;
    nRC = oClient.CANopenSendSDOReadBlock(NODE, 0x2010, 0, TIMEOUT, nSize, nStatus, nLen, anRead.data());
    if (nRC != 0)
        return Failed("block read", nRC);
    anRead.erase(anRead.begin());
    anWritten.pop_back();
    const bool bSame = nLen == nSize && anRead == anWritten;
    std::printf("%zu bytes in blocks: %s\n", anRead.size(), bSame ? "as written" : "not what was written");
    return bSame ? 0 : 1;
}

int Events(CQuorvelClientCANDll& oClient)
{
    // The node sends its inputs, which follow its outputs, on SYNC.
    int nRC = oClient.CANopenSendPDO(NODE, 1, 4, "\x01\x02\x03\x04");
    if (nRC == 0)
        nRC = oClient.CANopenSendSYNC();
    if (nRC == 0)
        nRC = WriteObject(oClient, 0x2002, 2, 0x5000); // the node reports this error
    if (nRC == 0)
        nRC = WriteObject(oClient, 0x1017, 2, 50); // a heartbeat every 50 ms
    if (nRC != 0)
        return Failed("events", nRC);

    unsigned char nNode = 0;
    unsigned char nType = 0;
    unsigned char nLen = 0;
    char acData[8] = {};
    if (!WaitFor([&] { return oClient.CANopenGetPDO(&nNode, &nType, &nLen, acData); }))
        return NothingCame("PDO");
    std::printf("PDO %u of node %u:", nType, nNode);
    for (int i = 0; i < nLen; ++i)
        std::printf(" %02X", static_cast<unsigned char>(acData[i]));
    std::printf("\n");

    unsigned short nError = 0;
    unsigned char nRegister = 0;
    if (!WaitFor([&] { return oClient.CANopenGetEMCY(&nNode, &nError, &nRegister, nullptr); }))
        return NothingCame("emergency");
    std::printf("emergency of node %u: 0x%04X, register 0x%02X\n", nNode, nError, nRegister);

    // Before the first heartbeat comes the message that the node has started, with the state 0.
    unsigned char nState = 0;
    const bool bAlive =
        WaitFor([&] { return oClient.CANopenGetGUARD(&nNode, &nState) >= 0 && nState == 5 ? 0 : -1; });
    if (!bAlive)
        return NothingCame("heartbeat");
    std::printf("heartbeat of node %u: state %u\n", nNode, nState);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    CQuorvelClientCANDll oClient(1, 2000);
    oClient.SetMaxSizePerQueue(1000);
    int nRC = oClient.Connect(argv[1], 0, 1, true);
    if (nRC == 0)
        nRC = oClient.Open(true, false);
    if (nRC == 0)
        nRC = oClient.SetFilter({}); // all frames pass
    if (nRC == 0)
        nRC = oClient.CANopenSetConfig(1); // master
    if (nRC == 0)
        nRC = oClient.CANopenSendNMT(NODE, 0x81); // reset
    if (nRC == 0)
        nRC = oClient.CANopenSendNMT(NODE, 0x01); // start
    if (nRC != 0)
        return Failed("start", nRC);

    int nStatus = Walk(oClient);
    if (nStatus == 0)
        nStatus = Blocks(oClient);
    if (nStatus == 0)
        nStatus = Events(oClient);
    nRC = oClient.CANopenSendNMT(NODE, 0x81);
    if (nRC == 0)
        nRC = oClient.CANopenSetConfig(0);
    return nRC != 0 ? Failed("reset", nRC) : nStatus;
}

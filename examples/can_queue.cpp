// Sends CAN frames from one client to another, and answers back; both read from their queues.
//
//     can_queue HOST
//
// Returns 0 when every frame was answered.

#include "QuorvelClientCANDll.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace
{

struct SFrame {
    int nIdentifier = 0;
    char acData[72] = {}; // 64 data bytes, and 8 of the time stamp
    unsigned char nLen = 0;
    int nFlags = 0;
};

// The readers do not wait: they return -1 when the queue is empty.
bool ReadFrame(CQuorvelClientCANDll& oClient, SFrame& oFrame)
{
    for (int i = 0; i < 2000; ++i) {
        if (oClient.CANGetMessage(&oFrame.nIdentifier, oFrame.acData, &oFrame.nLen, &oFrame.nFlags, nullptr,
                                  nullptr) >= 0)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

int Connect(CQuorvelClientCANDll& oClient, const char* pHost)
{
    oClient.SetMaxSizePerQueue(1000); // nothing is queued before
    const int nRC = oClient.Connect(pHost, 0, 1, true);
    return nRC != 0 ? nRC : oClient.Open(true, false);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::printf("usage: %s HOST\n", argv[0]);
        return 1;
    }

    CQuorvelClientCANDll oMaster(1, 2000);
    CQuorvelClientCANDll oSlave(2, 2000);
    int nRC = Connect(oMaster, argv[1]);
    if (nRC == 0)
        nRC = Connect(oSlave, argv[1]);

    if (nRC == 0)
        nRC = oMaster.CANopenSetConfig(0); // no master, to which the gateway would give the frames instead

    // Questions have the identifier 0x201, answers 0x202 and the number increased by one. The filter of the
    // gateway lets only these two in: identifier and value must agree in the bits of the mask.
    CQuorvelClientCAN::SConfigFilter oFilter = {{0x7FF, 0x201, 0x7FF, 0x202}};
    if (nRC == 0)
        nRC = oMaster.SetFilter(oFilter);

    constexpr int QUESTIONS = 10;
    int nAnswers = 0;
    for (int i = 0; i < QUESTIONS && nRC == 0; ++i) {
        const char cQuestion = static_cast<char>(i);
        nRC = oMaster.Write(0x201, &cQuestion, 1, 0, nullptr, nullptr);
    }
    for (int i = 0; i < QUESTIONS && nRC == 0; ++i) {
        SFrame oQuestion;
        if (!ReadFrame(oSlave, oQuestion) || oQuestion.nIdentifier != 0x201)
            break;
        const char cAnswer = static_cast<char>(oQuestion.acData[0] + 1);
        nRC = oSlave.Write(0x202, &cAnswer, 1, 0, nullptr, nullptr);
    }
    for (int i = 0; i < QUESTIONS && nRC == 0; ++i) {
        SFrame oAnswer;
        if (!ReadFrame(oMaster, oAnswer) || oAnswer.nIdentifier != 0x202 || oAnswer.acData[0] != i + 1)
            break;
        ++nAnswers;
    }
    if (nRC == 0)
        nRC = oMaster.SetFilter({}); // it holds for all clients of the gateway: all frames pass again

    if (nRC != 0) {
        std::printf("0x%08X %s\n", static_cast<unsigned int>(nRC), CQuorvelClient::GetErrorMsg(nRC).c_str());
        return 1;
    }
    std::printf("%d questions, %d right answers\n", QUESTIONS, nAnswers);
    return nAnswers == QUESTIONS ? 0 : 1;
}

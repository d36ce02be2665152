/**
 * @file SdoClient.h
 * @brief The end of an SDO transfer that asks for it.
 */
#ifndef QUORVEL_SIM_SDO_CLIENT_H
#define QUORVEL_SIM_SDO_CLIENT_H

#include "Sdo.h"

/** One transfer: begun by one of the first four functions, which return its first frame, then driven by Handle. */
class CSdoClient
{
  public:
    CSdoClient(unsigned nIndex, unsigned nSubindex) : m_nIndex(nIndex), m_nSubindex(nSubindex) {}

    /// Reads an object, expedited or in segments as the server decides.
    std::string Read();
    /// Writes 1 to 4 bytes expedited; 0: four bytes, without saying how many they are.
    std::string Write(unsigned nValue, unsigned nBytes);
    std::string ReadBlocks();
    std::string WriteBlocks(const std::string& strData);

    /// Takes a frame of the server and returns the frames to send next.
    std::vector<std::string> Handle(const std::string& strFrame);
    /// The frame with which to give up.
    std::string GiveUp(unsigned nCode);

    bool IsFinished() const { return m_eState == EState::eFinished; }
    /// The abort code of a transfer that failed, of whichever end, otherwise 0.
    unsigned GetAbort() const { return m_nAbort; }
    /// What was read; of an expedited write the value in the answer.
    const std::string& GetData() const { return m_strData; }

  private:
    enum class EState {
        eRead,
        eReadSegments,
        eWrite,
        eReadBlocks,
        eReadBlock,
        eReadBlocksEnd,
        eWriteBlocks,
        eWriteBlock,
        eWriteBlocksEnd,
        eFinished
    };

    void Step(const std::string& strFrame, std::vector<std::string>& astrNext);
    void TakeSegment(const std::string& strFrame, std::vector<std::string>& astrNext);
    void TakeBlockAnswer(const std::string& strFrame, std::vector<std::string>& astrNext);
    void Fail(unsigned nCode, std::vector<std::string>& astrNext) { astrNext.assign(1, GiveUp(nCode)); }

    unsigned m_nIndex;
    unsigned m_nSubindex;
    EState m_eState = EState::eRead;
    unsigned m_nAbort = 0;
    unsigned m_nToggle = 0;
    bool m_bCrc = false;
    std::string m_strData;
    CSdoBlockSender m_oSender;
    CSdoBlockReceiver m_oReceiver;
};

#endif

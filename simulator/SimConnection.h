/**
 * @file SimConnection.h
 * @brief One client's connection to a simulated gateway.
 */
#ifndef QUORVEL_SIM_CONNECTION_H
#define QUORVEL_SIM_CONNECTION_H

#include "FaultPlan.h"
#include "SimDescriptor.h"
#include "SimTelegram.h"

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class CSimGateway;
struct SSimAnswer;

/**
 * Serves one client on a thread of its own: reads requests, has the gateway carry them out, and sends the
 * answers, spoiled as the fault plan says. An answer that is not due yet waits in the list of timers while
 * further requests are served.
 *
 * The thread never blocks in a send. When a client does not read, requests are no longer read either, and
 * indications beyond a limit are dropped, so that the memory stays bounded.
 */
class CSimConnection
{
  public:
    CSimConnection(CSimGateway& oGateway, CSimDescriptor oSocket, std::string strPeer, unsigned nNumber,
                   bool bRefused, CFaultPlan oPlan);
    /// Ends the connection and joins its thread.
    ~CSimConnection();
    CSimConnection(const CSimConnection&) = delete;
    CSimConnection& operator=(const CSimConnection&) = delete;

    /// Starts the thread; throws std::system_error when there is none to be had.
    void Start();
    /// Asks the thread to end; may be called from any thread.
    void Drop();
    /// Sends an indication after nDelayMs; false when the client has left too much unread. From any thread.
    bool Post(const SSimTelegram& oIndication, unsigned nDelayMs);

    unsigned GetNumber() const { return m_nNumber; }
    const std::string& GetPeer() const { return m_strPeer; }
    /// Whether the client came when all places were taken, so that its requests are refused.
    bool IsRefused() const { return m_bRefused; }
    /// Whether the thread has done its work.
    bool IsEnded() const { return m_bEnded; }
    void SetEnded() { m_bEnded = true; }

  private:
    enum class EAction { eNone, eClose, eHalfClose, eReset, eRestart };
    struct SOutput {
        std::string strBytes;
        std::size_t nSegment = 0;         ///< bytes to send at a time, 0: all
        EAction eAction = EAction::eNone; ///< once the bytes are sent
    };
    struct SPosted {
        TSimTime oDue;
        std::string strBytes;
    };

    void Run();
    bool Serve();
    bool HasRoom() const;
    void Receive();
    void Send();
    void Execute(EAction eAction);
    void TakePosted();
    void Handle(const SSimTelegram& oRequest);
    void Proceed(unsigned short nCmdCode, short nID, SSimAnswer oAnswer);
    void Finish(unsigned short nCmdCode, short nID, const SSimAnswer& oAnswer);
    void Transmit(const SAnswerFaults& oFaults, const std::string& strBytes, bool bRestart);
    void ReleaseHeld(std::size_t nSegment);
    void Output(std::string strBytes, std::size_t nSegment, EAction eAction = EAction::eNone);

    CSimGateway& m_oGateway;
    CSimDescriptor m_oSocket;
    const std::string m_strPeer;
    const unsigned m_nNumber;
    const bool m_bRefused;
    const CFaultPlan m_oPlan;
    CSimWakeEvent m_oWake;
    std::atomic<bool> m_bDrop{false};
    std::atomic<bool> m_bEnded{false};

    // The thread's own.
    CSimTelegramCutter m_oCutter;
    std::vector<char> m_aoChunk;
    std::multimap<TSimTime, std::function<void()>> m_aoTimers;
    std::deque<SOutput> m_aoOutput;
    std::size_t m_nSent = 0; ///< of the first output
    std::string m_strHeld;   ///< answers to be glued
    unsigned m_nHeld = 0;
    unsigned m_nAnswers = 0;
    bool m_bSilent = false;
    bool m_bOpen = true;

    std::mutex m_oMutexPosted;
    std::vector<SPosted> m_aoPosted;
    std::atomic<std::size_t> m_nPending{0}; ///< bytes in m_aoOutput and m_aoPosted

    std::thread m_oThread;
};

#endif

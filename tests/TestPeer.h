// A gateway made of nothing but a socket: records the requests it gets and answers with what the test says.
#ifndef QUORVEL_TEST_PEER_H
#define QUORVEL_TEST_PEER_H

#include "support/TraceServer.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// "05 00 0a" as bytes.
std::string Hex(const std::string& strDigits);

// Bytes as "05 00 0a".
std::string ToHex(const std::string& strBytes);

// A telegram, built without the library.
std::string Telegram(unsigned int nCode, int nID, const std::string& strData);

// Waits for a condition; false after thirty seconds.
bool WaitUntil(const std::function<bool()>& fnCondition);

// Runs a function on a thread with a stack of 64 KiB, or 1 MiB when instrumented, as later ones have.
void OnSmallStack(const std::function<void()>& fnRun);

// Milliseconds that a call takes.
template<class FCall>
long long Milliseconds(FCall fnCall)
{
    const auto oStart = std::chrono::steady_clock::now();
    fnCall();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - oStart)
        .count();
}

class CTestPeer
{
  public:
    explicit CTestPeer(const std::string& strAddress = "127.0.0.1", unsigned short nPort = 0);
    ~CTestPeer();
    CTestPeer(const CTestPeer&) = delete;
    CTestPeer& operator=(const CTestPeer&) = delete;

    unsigned short GetPort() const { return m_nPort; }

    // What the next requests get, in order: a confirmation with this data (hex digits), these bytes as they
    // are, or nothing. A request that finds no plan gets nothing.
    void Confirm(const std::string& strHexData);
    void Raw(const std::string& strBytes);
    void Ignore() { Raw(""); }

    // The oldest request not yet taken, as hex digits; "none" after so many seconds without one.
    std::string TakeRequest(int nSeconds = 10);

    bool WaitForClient(unsigned int nNumber = 1); // the first or a later connection is there
    bool WaitForEndOfClient();                    // and is gone again
    void Send(const std::string& strBytes);       // to the client, unasked
    void Close();                                 // ends the connection in an orderly way
    void Reset();                                 // resets the connection
    void StopAnsweringAtAll();                    // drops every packet from now on, also of new connections
    void StopReading() { m_bRead = false; }       // the next connection is accepted, but not read from
    void ReadAgain();                             // and now it is
    bool WasReset() { return m_bReset; }          // the last connection was ended by a reset

  private:
    void Serve();
    void Plan(bool bRaw, const std::string& strBytes);

    unsigned short m_nPort = 0;
    int m_nListener = -1;
    int m_nClient = -1; // guarded by m_oMutex
    unsigned int m_nClients = 0;
    bool m_bEnd = false;
    std::atomic<bool> m_bRead{true};
    std::atomic<bool> m_bReset{false};
    std::deque<std::pair<bool, std::string>> m_aoPlan;
    std::deque<std::string> m_astrRequests;
    std::mutex m_oMutex;
    std::condition_variable m_oChanged;
    std::thread m_oThread;
};

// Collects traces as "level unit: text" while it lives.
class CTraceRecorder
{
  public:
    explicit CTraceRecorder(unsigned char nLevelMask = 0xFF);
    ~CTraceRecorder() { CTraceServer::SetSink({}); }
    std::vector<std::string> Take();

  private:
    std::mutex m_oMutex;
    std::vector<std::string> m_astrTexts;
};

#endif

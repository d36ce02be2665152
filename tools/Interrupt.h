// Ctrl-C and its kin, for programs whose threads wait in the library.
#ifndef QUORVEL_TOOL_INTERRUPT_H
#define QUORVEL_TOOL_INTERRUPT_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>

/**
 * Takes SIGINT, SIGTERM and SIGHUP on a thread of its own: notes the signal, closes the connection that is
 * registered, and wakes whoever waits. A program that does not end within a second after that is ended, and its
 * partial files removed.
 */
class CInterrupt
{
  public:
    CInterrupt() = default;
    /// Ends the thread.
    ~CInterrupt();
    CInterrupt(const CInterrupt&) = delete;
    CInterrupt& operator=(const CInterrupt&) = delete;

    /// Takes the signals from now on. Call it before other threads start: they inherit the signal mask.
    void Start();

    /// @return the signal that came, or 0
    int GetSignal() const { return m_nSignal.load(); }

    /**
     * Waits.
     * @param oTime how long
     * @return false, at once, when a signal came
     */
    bool Wait(std::chrono::nanoseconds oTime);

    /// Sets what is called when a signal comes; an empty function: nothing. Returns when the old one is not running.
    void SetAction(std::function<void()> fnAction);

    /// Adds a file that must not stay behind.
    void AddPartialFile(const std::string& strPath);

    /// The file is complete, or gone.
    void RemovePartialFile(const std::string& strPath);

  private:
    void Watch();

    std::atomic<int> m_nSignal{0};
    std::mutex m_oMutex; // guards what follows
    std::condition_variable m_oCondition;
    bool m_bEnd = false;
    std::set<std::string> m_astrPartialFiles;
    std::mutex m_oMutexAction; // held while the action runs
    std::function<void()> m_fnAction;
    std::thread m_oThread;
};

#endif

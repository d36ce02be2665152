/**
 * @file QuorvelClientAWire.h
 * @brief The client of the aWire programmer.
 */
#ifndef QUORVEL_CLIENT_AWIRE_H
#define QUORVEL_CLIENT_AWIRE_H

#include "QuorvelClient.h"
#include "QuorvelHexfile.h"
#include "support/ZelThread.h"

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <string>

/**
 * The aWire programmer (kind 14, TCP port 5013): erases, writes, reads and verifies the flash and the user
 * page of a target microcontroller.
 *
 * Writing takes the target its time. WriteBlock only sends the block; the gateway reports later, unasked, how
 * far it is, and GetWriteBlockStatus tells what was reported last. WriteFile writes and verifies a whole image
 * file in the background; GetWriteFileStatus tells how far it is. Neither erases: do that before.
 *
 * Threads and results as CQuorvelClient. The writes and both status functions do not wait for the gateway and
 * may be called from an indication.
 *
 * Destroying the client ends a running transfer between two telegrams; what was sent by then is written by the
 * gateway all the same. If the gateway does not answer the telegram just under way, the destructor waits for
 * its time-out, and for no other: not for blocks that were never reported. A trace sink must not destroy the
 * client from the transfer's own thread.
 */
class QUORVEL_API CQuorvelClientAWire : public CQuorvelClient
{
  public:
    /** Holds EProgress. */
    struct Progress {
        /** How far a block is. */
        enum EProgress : unsigned int {
            eFinished = 0,   ///< written
            eInProgress = 1, ///< not yet written
            eFailed = 2      ///< refused or failed; so is any other value, which is the gateway's own
        };
    };

    /** Holds EFileStep. */
    struct FileStep {
        /** How far a file is. */
        enum EFileStep : int {
            eFailed = -1,    ///< not loaded, not written or not the same when read back
            eNotStarted = 0, ///< loaded
            eWriting = 1,    ///< blocks are sent and written
            eVerifying = 2,  ///< everything is read back and compared
            eFinished = 3    ///< done
        };
    };

    /** One block that was sent and not yet seen as written. */
    struct SWriteBlockProgress {
        Progress::EProgress eProgress = Progress::eInProgress; ///< as reported last
        unsigned short nLength = 0;                            ///< bytes sent
        unsigned short nDone = 0;                              ///< bytes written, as reported last
    };

    /**
     * The thread of WriteFile: writes an image, then verifies it.
     *
     * The memory blocks of the image are written one after the other, in chunks that end at multiples of the
     * largest multiple of the page size up to 32768 (of 32768 when the page is larger). Before the next chunk of
     * the same memory block is sent, fewer than two are with the gateway; the first chunk of the next memory
     * block follows at once. Verifying reads at most 32768 bytes at a time.
     */
    class QUORVEL_API CWriteFileThread : public CZelThread
    {
      public:
        /**
         * Loads the image, on the calling thread. If that fails, the step is eFailed.
         * @param oClient     where to write; must outlive the thread
         * @param strFilename the file, of any format that CQuorvelHexfile tells apart
         */
        CWriteFileThread(CQuorvelClientAWire& oClient, const std::string& strFilename);

        /** Ends the thread: waits at most for the exchange that is under way. */
        ~CWriteFileThread() override;

        /**
         * Writes and verifies. Loses no time on what cannot happen any more: a lost connection fails the
         * transfer. When asked to terminate, it stops at once and ends as eFinished.
         */
        void Run() override;

        /** @return how far it is */
        FileStep::EFileStep GetStep() const { return m_eStep; }

        /**
         * @param eStep what GetStep returned
         * @return percent of this step, 0 to 100: while writing, of the bytes reported as written; while
         *         verifying, of the bytes compared; 0 for an image without bytes. 100 at the end, whether
         *         finished or failed.
         */
        unsigned char GetPercent(FileStep::EFileStep eStep) const;

      protected:
        /** @return true while that is the step and nobody has asked to terminate */
        bool IsIn(FileStep::EFileStep eStep);
        /** Sends the image and waits until everything is reported. */
        void Write();
        /** Sends one memory block in chunks of at most nChunkSize. */
        void WriteMemoryBlock(const CQuorvelHexfile::SMemoryBlock& oBlock, unsigned int nChunkSize);
        /** Waits a little for reports and takes them in. */
        void AwaitStatus();
        /** Takes in what was reported of the pending blocks. */
        void UpdateStatus();
        /** Compares the image with what the target has. */
        void Verify();

        std::atomic<FileStep::EFileStep> m_eStep{FileStep::eNotStarted}; ///< how far it is
        CQuorvelClientAWire& m_oClient;                                  ///< where to write
        CQuorvelHexfile m_oHexfile;                                      ///< the image
        unsigned int m_nTotal = 0;                                       ///< bytes of the image
        std::atomic<unsigned long long> m_nWritten{0}; ///< bytes reported, the block in progress included
        unsigned long long m_nFinished = 0;            ///< bytes of finished blocks; the thread's own
        std::atomic<unsigned int> m_nVerified{0};      ///< bytes compared
        std::deque<short> m_anPending; ///< blocks sent and not yet seen as finished, oldest first
        unsigned int m_nSignals = 0;   ///< of the client's event, up to the last update
    };

    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientAWire(int nTimeout);
    /** Ends a running transfer, then as CQuorvelClient. */
    ~CQuorvelClientAWire() override;

    /**
     * Takes in a write status (command 0x0EE1: telegram id of the block, status byte, bytes done; numbers of
     * 16 bits).
     * @param pMsg the telegram; must not be null
     * @return false, always
     */
    bool DataIndRespond(CQuorvelMsg* pMsg) override;

    /**
     * Describes the target to the gateway.
     * @param nBaudrate     interface baud rate, bits per second
     * @param nFlashAddress start address of the flash
     * @param nFlashSize    size of the flash in bytes
     * @param nPageSize     size of a page in bytes; the client remembers it for WriteFile
     * @param strName       the target's name
     * @return result code; 0x0E22 or 0x0E23 when the gateway cannot use it
     */
    int SetConfig(unsigned int nBaudrate, unsigned int nFlashAddress, unsigned int nFlashSize,
                  unsigned int nPageSize, std::string strName);

    /**
     * Reads what the gateway knows of the target, and remembers the page size. The outputs are left as they
     * are on failure and, with the result 0, when the gateway sends too little.
     * @param nBaudrate     receives the interface baud rate
     * @param nFlashAddress receives the start address of the flash
     * @param nFlashSize    receives the size of the flash in bytes
     * @param nPageSize     receives the size of a page in bytes
     * @param strName       receives the target's name
     * @return result code
     */
    int GetConfig(unsigned int& nBaudrate, unsigned int& nFlashAddress, unsigned int& nFlashSize,
                  unsigned int& nPageSize, std::string& strName);

    /**
     * Sends a block to be written to the flash and does not wait.
     * @param nOffset address of the first byte
     * @param nLength number of bytes, at most 65522: longer ones are refused with 0x00020000
     * @param pData   the bytes; null sends none, whatever nLength announces
     * @param nID     receives what GetWriteBlockStatus wants to know; untouched with 0x0E21
     * @return 0; 0x0E21 while there is a file transfer; a transport failure
     */
    int WriteBlock(unsigned int nOffset, unsigned short nLength, const char* pData, short& nID);

    /** As WriteBlock, also during a file transfer: what that uses itself. */
    int WriteBlockInternal(unsigned int nOffset, unsigned short nLength, const char* pData, short& nID);

    /**
     * Sends a block to be written to the user page; otherwise as WriteBlock.
     * @param nOffset offset in the user page
     * @param nLength number of bytes
     * @param pData   the bytes; null sends none, whatever nLength announces
     * @param nID     receives what GetWriteBlockStatus wants to know
     * @return as WriteBlock
     */
    int WriteUserPage(unsigned int nOffset, unsigned short nLength, const char* pData, short& nID);

    /** As WriteUserPage, also during a file transfer. */
    int WriteUserPageInternal(unsigned int nOffset, unsigned short nLength, const char* pData, short& nID);

    /**
     * Tells what the gateway reported of a block. A finished block is forgotten as it is told.
     * @param nID       what the write gave
     * @param eProgress receives how far it is
     * @param nLength   receives the number of bytes sent
     * @param nDone     receives the number of bytes written
     * @return 0; 255, with the outputs untouched, for a block that was never sent or is forgotten
     */
    int GetWriteBlockStatus(short nID, Progress::EProgress& eProgress, unsigned short& nLength,
                            unsigned short& nDone);

    /**
     * Erases a block of the flash.
     * @param nBlock its number, counted as the gateway does
     * @return result code; 0x0E24 or 0x0E25 when the gateway cannot do it
     */
    int Erase(unsigned short nBlock);

    /**
     * Erases the user page.
     * @return result code
     */
    int EraseUserPage();

    /**
     * Reads from the target.
     * @param nOffset address of the first byte
     * @param nLength how many
     * @param pData   receives at most that many bytes; with null none is stored
     * @param nRead   receives the number of bytes stored, which is smaller when the gateway sends fewer.
     *                Both outputs are untouched unless the result is 0.
     * @return result code; 0x0E26 when the gateway cannot read
     */
    int Read(unsigned int nOffset, unsigned short nLength, char* pData, unsigned short& nRead);

    /**
     * Reads from the target and compares.
     * @param nOffset address of the first byte
     * @param nLength how many
     * @param pData   what should be there; null differs from any byte
     * @return 0; 0x0EFF when it differs; 0x0E26 when the gateway sends fewer bytes; any other result code
     */
    int Verify(unsigned int nOffset, unsigned short nLength, const char* pData);

    /**
     * Loads an image file and starts writing it to the flash, and verifying it, in the background. Ask
     * GetWriteFileStatus until it tells the end: until then there is no other write. Asks the gateway for the
     * page size (GetConfig) if the client has not learnt it yet. The file is no longer needed on return.
     * @param strFilename Intel HEX, S-records or binary, told apart by the content; its addresses are the
     *                    target's
     * @return 0, also when the file cannot be loaded (the status is eFailed then), and when the page size is 0
     *         (nothing is started then); 0x0E21 when there is a transfer already; 255 when there is no thread
     *         to be had; a result code of GetConfig
     */
    int WriteFile(const std::string& strFilename);

    /**
     * Tells how far the transfer is. Telling its end, finished or failed, forgets it. A gateway that is
     * connected but never reports keeps a transfer at eWriting: give up by destroying the client.
     * @param eStep    receives the step
     * @param nPercent receives the percentage, see CWriteFileThread::GetPercent
     * @return 0; 255, with the outputs untouched, when there is no transfer
     */
    int GetWriteFileStatus(FileStep::EFileStep& eStep, unsigned char& nPercent);

  protected:
    /**
     * Ends a running transfer and forgets it. A class derived from this one calls it at the start of its
     * destructor, before StopReception.
     */
    void EndWriteFile();

    std::map<short, SWriteBlockProgress> m_aoBlockProgress; ///< by telegram id of the write
    CZelMutex m_oMutexBlockProgress;                        ///< guards m_aoBlockProgress
    CZelEvent m_oEventBlockProgress;                        ///< signalled by every report of a known block
    std::unique_ptr<CWriteFileThread> m_pWriteFileThread;   ///< null when there is no transfer
    CZelMutex m_oMutexWriteFile;                            ///< guards m_pWriteFileThread
    std::atomic<unsigned int> m_nPageSize{0};               ///< bytes; 0 when not yet known

  private:
    bool IsWritingFile();
    int SendBlock(class CCommand& oCommand, unsigned short nCmdCode, unsigned int nOffset,
                  unsigned short nLength, const char* pData, short& nID);
};

#endif

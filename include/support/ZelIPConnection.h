/**
 * @file ZelIPConnection.h
 * @brief One TCP connection with its receive thread.
 */
#ifndef QUORVEL_ZEL_IP_CONNECTION_H
#define QUORVEL_ZEL_IP_CONNECTION_H

#include "../QuorvelExport.h"

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

class CReception;

/** Names shared by the kinds of connection. */
class QUORVEL_API CZelIPBase
{
  public:
    /** Selects a protocol. Every value opens TCP. */
    enum EProtocol : unsigned char {
        eProtocolTCP = 1 ///< TCP
    };

    /** Results of the connection's operations. */
    enum ETransportCode {
        eSuccess = 1,              ///< done
        eSocketError = 2,          ///< refused, name not resolved, telegram too long, any socket failure
        eNotConnected = 3,         ///< there is no connection, or it has just been lost
        eTimeout = 4,              ///< not done in time
        eStackInitialising = 5,    ///< not allowed now: another thread is connecting this object
        eStackNotInitialised = 6,  ///< not used on this platform
        eMaxConnectionsReached = 7 ///< not used on this platform
    };

    /** States of a connection. */
    enum EConnectState {
        eStateNotConnected = 0,  ///< not connected
        eStateConnecting = 1,    ///< ConnectReq is under way
        eStateDisconnecting = 2, ///< DisconnectReq waits for the receive thread
        eStateConnected = 3      ///< connected
    };
};

/**
 * One TCP connection (IPv4, IPv6 or host name) and the thread that receives from it.
 *
 * The byte stream is cut into telegrams: two length bytes (little-endian), then that many bytes. Each
 * telegram is handed to DataInd whole, length bytes included, however TCP cut or joined the bytes. A telegram
 * of more than 65535 bytes in all cannot be passed on: it is read past and traced.
 *
 * Derived classes override ConnectInd and DataInd, which run with no lock held, on the receive thread (but see
 * SetReadByCallers), and
 * call DisconnectReq(0xFFFFFFFF) in their destructor if the overrides use members of theirs.
 *
 * All functions may be called from any thread, also from within the indications. Time-outs are milliseconds,
 * 0xFFFFFFFF meaning without limit; they are kept to within a few milliseconds whatever the peer does (the
 * look-up of a host name comes on top).
 */
class QUORVEL_API CZelIPConnection : public CZelIPBase
{
  public:
    CZelIPConnection();

    /** Closes the connection and waits until a running indication has returned. */
    virtual ~CZelIPConnection();
    CZelIPConnection(const CZelIPConnection&) = delete;
    CZelIPConnection& operator=(const CZelIPConnection&) = delete;

    /**
     * The connection is up (true, before the first telegram) or lost (false: the peer closed or reset it, or
     * stopped answering keep-alive probes). Not called for one's own DisconnectReq. Does nothing here.
     * @param bConnected the new state
     */
    virtual void ConnectInd(bool bConnected);

    /**
     * One received telegram. Does nothing here.
     * @param pData the telegram from its length bytes on, never null; valid during the call
     * @param nLen  its number of bytes, 2 to 65535
     */
    virtual void DataInd(const char* pData, unsigned short nLen);

    /**
     * Whether a connect message is acceptable.
     * @return true, always
     */
    virtual bool IsConnectMsgAccepted(const std::string& strConnectMsg);

    /**
     * Connects; an existing connection is closed first.
     *
     * @param pHost         IPv4 or IPv6 address or host name; null is no host: eSocketError
     * @param nPort         TCP port
     * @param nTimeout      milliseconds for everything but the name look-up
     * @param nDevice       device kind; not used by TCP
     * @param eProtocol     every value opens TCP
     * @param strConnectMsg not used by TCP
     * @param bFlag         not used by TCP
     * @return eSuccess; eSocketError (refused, unreachable, name not resolved, closed by another thread
     *         meanwhile); eTimeout; eStackInitialising
     */
    int ConnectReq(const char* pHost, unsigned short nPort, unsigned int nTimeout, unsigned char nDevice,
                   EProtocol eProtocol, const std::string& strConnectMsg, bool bFlag);

    /**
     * Closes the connection. Nothing is delivered afterwards, not even telegrams already received; what was sent
     * arrives.
     *
     * Waits until a running indication has returned, and until the peer has acknowledged all that was sent; with
     * nothing left on its way, or while another thread is blocked in DataReq, the latter takes no time. Called from
     * within an indication it waits for neither. In the background, what the peer still sends is read and thrown away
     * until it ends the connection too, for nTimeout and for 10 seconds at most: otherwise the system would answer it
     * by a reset, at which the peer may lose what it has not read.
     * @param nTimeout milliseconds to wait for both; 0xFFFFFFFF waits without limit for an indication, and for 10
     *                 seconds for the peer
     * @return eSuccess, also when there was no connection; eTimeout when an indication still runs or the peer has not
     *         acknowledged everything (the connection is closed all the same)
     */
    int DisconnectReq(unsigned int nTimeout);

    /**
     * Sends one telegram, whole or not at all. Telegrams of several threads never mix.
     *
     * When the time is over in the middle of a telegram the connection is closed, because the stream can no
     * longer be trusted.
     * @param pData    the bytes; null only with nLen 0
     * @param nLen     how many
     * @param nTimeout milliseconds
     * @return eSuccess, eSocketError, eNotConnected or eTimeout
     */
    int DataReq(const char* pData, unsigned short nLen, unsigned int nTimeout);

    /**
     * The same for a telegram given in pieces, which saves putting a large one together.
     * @param aoPieces the pieces, at most 8
     * @param nTimeout milliseconds
     * @return as above; eSocketError, and nothing is sent, for more than 65535 bytes in all
     */
    int DataReq(std::initializer_list<std::string_view> aoPieces, unsigned int nTimeout);

    /**
     * Keep-alive probes: a peer that vanished without a word is noticed within about this time, even when
     * nothing is sent, and ConnectInd(false) follows. Holds for the present connection and later ones.
     * @param nMilliSeconds the time, at least 2000 to be kept, and rounded down to whole seconds, which the
     *                      system counts; 0 switches the probes off
     */
    void SetAlive(unsigned int nMilliSeconds);

    /** @return the state, an EConnectState */
    int GetState() const;

    /** @return the host text given to ConnectReq; empty before */
    std::string GetPartnerAddress() const;

    /** @return true when called from within an indication of this connection */
    bool IsReceiveThread() const;

    /**
     * Has a function called as the receive thread's very last act, when it no longer touches this object; the
     * function may delete it. The thread must be about to end: call DisconnectReq too.
     * @param fnLast the function
     * @return false, and nothing happens, when not called from within an indication of this connection
     */
    bool RunAtEndOfReception(std::function<void()> fnLast);

    /** Tells of a telegram whether a thread that waits for an answer may deliver it; see SetReadByCallers. */
    using FMine = bool (*)(const char* pData, unsigned short nLen);

    /**
     * Lets threads that wait for an answer receive it themselves, which saves handing it over from the receive thread:
     * a CReader reads, and calls DataInd for the telegrams that fnMine is true for. All others come on the receive thread
     * as ever, in their order: behind one of them, nothing is delivered before its DataInd has returned. DataInd is
     * never called on two threads at once. Holds for later connections.
     * @param fnMine must not touch anything but the telegram; null at first: the receive thread alone reads
     */
    void SetReadByCallers(FMine fnMine);

    /** The reading of a connection, as long as a caller that waits for an answer has it. For one thread. */
    class QUORVEL_API CReader
    {
      public:
        /** @param oConnection the connection, which must outlive this object */
        explicit CReader(CZelIPConnection& oConnection) : m_oConnection(oConnection) {}

        /** Gives the reading back. */
        ~CReader();
        CReader(const CReader&) = delete;
        CReader& operator=(const CReader&) = delete;

        /**
         * Takes the reading, best before the request is sent: then the answer does not wake the receive thread.
         * @return false when it cannot be had: somebody else reads, indications stream in, there is no connection, or
         *         it was not allowed
         */
        bool Begin();

        /**
         * Waits for bytes and delivers what is for callers; only between Begin and the first false.
         * @param nTimeout milliseconds
         * @return false when the reading was given back, because an indication has come, the connection has ended or
         *         CancelRead was called: the receive thread goes on
         * @throw std::bad_alloc from DataInd; the telegram is lost, and the reading given back
         */
        bool Read(unsigned int nTimeout);

      private:
        void End(bool bHandOver);

        CZelIPConnection& m_oConnection;
        std::shared_ptr<CReception> m_pReception; // null when the reading is somebody else's
    };

    /** Has the caller that reads, if there is one, give the reading back. */
    void CancelRead();

  private:
    struct SState;

    static int Close(std::shared_ptr<SState> pState, unsigned int nTimeout, bool bIndication, bool bForPeer);
    bool Start(const std::shared_ptr<CReception>& pReception);
    void Receive(const std::shared_ptr<CReception>& pReception);
    void Deliver(CReception& oReception);
    void CallDataInd(std::string_view strTelegram);

    std::shared_ptr<SState> m_pState; // a thread that waits for the end of the connection keeps it
};

#endif

/**
 * @file QuorvelClientCAN.h
 * @brief The client of the CAN gateway: settings, transmission, CANopen requests.
 */
#ifndef QUORVEL_CLIENT_CAN_H
#define QUORVEL_CLIENT_CAN_H

#include "QuorvelClient.h"

#include <atomic>

#include <sys/time.h>

/**
 * The CAN gateway (kind 2, TCP port 5001): settings of the bus and the gateway, transmission of CAN frames,
 * and the requests of its CANopen master mode. This class ignores what the gateway receives from the bus;
 * CQuorvelClientCANDll queues it or hands it to callbacks.
 *
 * Threads and results as CQuorvelClient; the gateway's own codes are 0x02cc. Arguments are passed on as they
 * are; the gateway judges them. A request that does not fit a telegram is refused with 0x00020000. Outputs are
 * written only on success and only when the gateway sent enough, except as stated.
 */
class QUORVEL_API CQuorvelClientCAN : public CQuorvelClient
{
  public:
    /** Acceptance filter: sixteen values, sent in this order; their meaning is the gateway's. */
    struct SConfigFilter {
        unsigned int anValues[16]; ///< the values
    };

    /**
     * A client that is not connected yet and does not have frames confirmed.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientCAN(int nTimeout);
    ~CQuorvelClientCAN() override;

    using CQuorvelClient::Open;

    /**
     * CQuorvelClient::Open, then SetConfig.
     * @param bConfirmData as in SetConfig
     * @param bMonitor     as in SetConfig
     * @return result code
     */
    int Open(bool bConfirmData, bool bMonitor);

    /** Ignores every indication, also null. @return false */
    bool DataIndRespond(CQuorvelMsg* pMsg) override;

    /**
     * Keep-alive: has a gateway that vanished without a word noticed.
     * @param nSeconds time after which it is noticed, at most 4294967; 0 switches the probes off
     * @return 0; nothing is sent to the gateway
     */
    int StartAlive(unsigned int nSeconds);

    /** @name Settings */
    ///@{

    /**
     * Sets how the gateway treats transmitted frames. Success decides how Write works from then on.
     * @param bConfirmData the gateway confirms every transmitted frame
     * @param bMonitor     monitor mode, as the gateway defines it
     * @return result code
     */
    int SetConfig(bool bConfirmData, bool bMonitor);

    /**
     * Reads what SetConfig sets. Success decides how Write works from then on.
     * @param bConfirmData receives whether the gateway confirms every transmitted frame
     * @param bMonitor     receives whether monitor mode is on
     * @return result code
     */
    int GetConfig(bool& bConfirmData, bool& bMonitor);

    /**
     * Sets the acceptance filter.
     * @param oFilter the filter
     * @return result code
     */
    int SetFilter(const SConfigFilter& oFilter);

    /**
     * Reads the acceptance filter.
     * @param oFilter receives the filter
     * @return result code
     */
    int GetFilter(SConfigFilter& oFilter);

    /**
     * Sets the bus.
     * @param nBaudrate      bits per second
     * @param nOperatingMode operating mode, as the gateway defines it
     * @param bTermination   terminating resistor
     * @param bHighSpeed     high-speed transceiver
     * @param bTimestampOn   received frames carry time stamps
     * @return result code
     */
    int SetGlobals(unsigned int nBaudrate, unsigned char nOperatingMode, bool bTermination, bool bHighSpeed,
                   bool bTimestampOn);

    /**
     * Reads what SetGlobals sets. The flags that the gateway does not send are false.
     * @param nBaudrate      receives bits per second
     * @param nOperatingMode receives the operating mode
     * @param bTermination   receives the terminating resistor's state
     * @param bHighSpeed     receives the transceiver's state
     * @param bTimestampOn   receives whether received frames carry time stamps
     * @return result code
     */
    int GetGlobals(unsigned int& nBaudrate, unsigned char& nOperatingMode, bool& bTermination,
                   bool& bHighSpeed, bool& bTimestampOn);

    /**
     * Sets the Z-card parameters, which are the gateway's to define.
     * @param nInterval interval
     * @param nFirstID  first identifier
     * @param nLastID   last identifier
     * @return result code
     */
    int SetZCardParameter(unsigned char nInterval, unsigned short nFirstID, unsigned short nLastID);

    /**
     * Reads the Z-card parameters. An identifier whose low byte is 0x80 or more comes out 0x100 too low
     * (0x0180 as 0x0080).
     * @param nInterval receives the interval
     * @param nFirstID  receives the first identifier
     * @param nLastID   receives the last identifier
     * @return result code
     */
    int GetZCardParameter(unsigned char& nInterval, unsigned short& nFirstID, unsigned short& nLastID);

    /**
     * Sets the gateway's clock.
     * @param oTime the time; seconds and microseconds are sent as 32 bits each
     * @return result code
     */
    int SetTime(const timeval& oTime);

    /**
     * Reads the gateway's clock.
     * @param bStatus receives the gateway's status flag
     * @param oTime   receives the time
     * @return result code
     */
    int GetTime(bool& bStatus, timeval& oTime);
    ///@}

    /** @name Power supply */
    ///@{

    /**
     * Reads the state of the power supply; the meaning of the values is the gateway's. The counts tell how
     * many entries the gateway announced, which may be more than were stored or sent; entries announced but
     * not sent count as 0.
     * @param nCapacity1 how many values fit into pValues
     * @param nCount1    receives how many there are
     * @param nCapacity2 how many flags fit into pFlags2
     * @param nCount2    receives how many there are
     * @param nCapacity3 how many flags fit into pFlags3
     * @param nCount3    receives how many there are
     * @param nSigned    receives the signed value
     * @param nFirst     receives the first unsigned value
     * @param nSecond    receives the second unsigned value
     * @param bFlag      receives the flag
     * @param pValues    receives the values; may be null
     * @param pFlags2    receives the flags of the second part; may be null
     * @param pFlags3    receives the flags of the third part; may be null
     * @return result code
     */
    int GetPowerStatus(unsigned char nCapacity1, unsigned char& nCount1, unsigned char nCapacity2,
                       unsigned char& nCount2, unsigned char nCapacity3, unsigned char& nCount3,
                       short& nSigned, unsigned short& nFirst, unsigned short& nSecond, bool& bFlag,
                       unsigned short* pValues, bool* pFlags2, bool* pFlags3);

    /**
     * Switches the power relay.
     * @param bOn its state
     * @return result code
     */
    int SetPowerRelais(bool bOn);

    /**
     * Chooses the power supplies.
     * @param nBitmask one bit per supply
     * @return result code
     */
    int SetActivePowerSupplies(unsigned int nBitmask);
    ///@}

    /**
     * Transmits a CAN frame.
     *
     * When the gateway confirms frames (SetConfig, GetConfig), waits for the confirmation; the time is the
     * gateway's. Otherwise sends and returns at once, also from within an indication; the time is the local
     * one, stored whether or not sending succeeded.
     * @param nIdentifier   CAN identifier
     * @param pData         frame data; null sends none
     * @param nLen          its length in bytes
     * @param nFlags        flags, as the gateway defines them
     * @param pSeconds      receives the time in whole seconds since 1970-01-01 (local time); may be null
     * @param pMicroSeconds receives the microseconds beyond them; may be null. Both are also stored when the
     *                      confirmation reports an error, and left alone when it carries no time.
     * @return result code
     */
    int Write(int nIdentifier, const char* pData, unsigned char nLen, unsigned char nFlags, int* pSeconds,
              int* pMicroSeconds);

    /**
     * Reads the gateway's digital lines; see BaseReadDigital.
     * @param nInputs  receives the input bits
     * @param nOutputs receives the output bits
     * @return result code
     */
    int ReadDigital(unsigned int& nInputs, unsigned int& nOutputs);

    /**
     * Sets the gateway's digital outputs; see BaseWriteDigital.
     * @param nOutputs the output bits
     * @return result code
     */
    int WriteDigital(unsigned int nOutputs);

    /** @name CANopen
     * Modes and types are the gateway's to define. The four SDO functions take a time-out of their own, in
     * milliseconds: it is sent to the gateway, and the confirmation is awaited for twice as long.
     *
     * The SDO values are sums in which a byte of 0x80 or more lowers all bytes above it: the bytes 80 00 00 00
     * give 0xFFFFFF80, FF 01 00 00 give 0x000000FF. A value of fewer than four bytes is a partial sum; with
     * none it is left as it is. */
    ///@{

    /**
     * Sets the CANopen mode.
     * @param nMode the mode
     * @return result code
     */
    int CANopenSetConfig(unsigned char nMode);

    /**
     * Reads the CANopen mode.
     * @param nMode receives the mode; 0 when the gateway sends none
     * @return result code
     */
    int CANopenGetConfig(unsigned char& nMode);

    /**
     * Sets how often the gateway sends SYNC.
     * @param nPeriodTime the period
     * @return result code
     */
    int CANopenSetSYNCMode(unsigned short nPeriodTime);

    /**
     * Sends an NMT command.
     * @param nNodeID  the node
     * @param nNMTType the command
     * @return result code
     */
    int CANopenSendNMT(unsigned char nNodeID, unsigned char nNMTType);

    /**
     * Sends SYNC once.
     * @return result code
     */
    int CANopenSendSYNC();

    /**
     * Sends TIME.
     * @param nDay the day
     * @param nMs  milliseconds of the day
     * @return result code
     */
    int CANopenSendTIME(unsigned short nDay, unsigned int nMs);

    /**
     * Sends a PDO.
     * @param nNodeID  the node
     * @param nPDOType which of its PDOs
     * @param nLen     number of data bytes
     * @param pData    the data; null sends none
     * @return result code
     */
    int CANopenSendPDO(unsigned char nNodeID, unsigned char nPDOType, unsigned char nLen, const char* pData);

    /**
     * Reads an object of up to four bytes.
     * @param nNodeID   the node
     * @param nIndex    index of the object
     * @param nSubindex subindex of the object
     * @param nTimeout  milliseconds
     * @param nStatus   receives the status
     * @param nValue    receives the value, or the abort code
     * @return result code
     */
    int CANopenSendSDORead(unsigned char nNodeID, unsigned short nIndex, unsigned char nSubindex,
                           unsigned short nTimeout, unsigned char& nStatus, unsigned int& nValue);

    /**
     * Writes an object of up to four bytes.
     * @param nSDOWriteType   how to write
     * @param nNodeID         the node
     * @param nIndex          index of the object
     * @param nSubindex       subindex of the object
     * @param nTimeout        milliseconds
     * @param nValue          the value
     * @param nStatus         receives the status
     * @param nReturnedValue  receives the value that the node returned
     * @return result code
     */
    int CANopenSendSDOWrite(unsigned char nSDOWriteType, unsigned char nNodeID, unsigned short nIndex,
                            unsigned char nSubindex, unsigned short nTimeout, unsigned int nValue,
                            unsigned char& nStatus, unsigned int& nReturnedValue);

    /**
     * Reads a large object.
     * @param nNodeID     the node
     * @param nIndex      index of the object
     * @param nSubindex   subindex of the object
     * @param nTimeout    milliseconds
     * @param nBufferSize size of the buffer in bytes
     * @param nStatus     receives the status
     * @param nLen        receives the number of bytes stored: the number of bytes read, at most nBufferSize
     * @param pBuffer     receives nLen bytes of which the first is the status; the object's bytes follow, and
     *                    its last one is not stored. May be null.
     * @return result code
     */
    int CANopenSendSDOReadBlock(unsigned char nNodeID, unsigned short nIndex, unsigned char nSubindex,
                                unsigned short nTimeout, unsigned short nBufferSize, unsigned char& nStatus,
                                unsigned short& nLen, unsigned char* pBuffer);

    /**
     * Writes a large object.
     * @param nNodeID   the node
     * @param nIndex    index of the object
     * @param nSubindex subindex of the object
     * @param nTimeout  milliseconds
     * @param nLen      number of bytes; at most 65522 fit a telegram
     * @param pData     the bytes; null sends none
     * @param nStatus   receives the status
     * @param nValue    receives the value that the node returned
     * @return result code
     */
    int CANopenSendSDOWriteBlock(unsigned char nNodeID, unsigned short nIndex, unsigned char nSubindex,
                                 unsigned short nTimeout, unsigned short nLen, const unsigned char* pData,
                                 unsigned char& nStatus, unsigned int& nValue);
    ///@}

  protected:
    std::atomic<bool> m_bConfirmData{false}; ///< the gateway confirms every transmitted frame
};

#endif

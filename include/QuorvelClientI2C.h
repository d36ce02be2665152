/**
 * @file QuorvelClientI2C.h
 * @brief The client of the I2C gateway.
 */
#ifndef QUORVEL_CLIENT_I2C_H
#define QUORVEL_CLIENT_I2C_H

#include "QuorvelClient.h"

#include <atomic>
#include <string>

/**
 * The I2C gateway (kind 1, TCP port 5000): bus clock, transfers, raw bus operations, command sequences and
 * serial EEPROMs.
 *
 * Threads and results as CQuorvelClient. Slave addresses are in the 8-bit form of the bus: the 7-bit address
 * shifted left by one, bit 0 the read/write bit. Arguments are passed on as they are; the gateway judges them
 * and answers for example 0x0120 (no acknowledge), 0x0121 or 0x0125 (acknowledge polling timed out). A request
 * that does not fit a telegram is refused with 0x00020000.
 *
 * Outputs are filled from the confirmation also when it reports an error; bytes that the gateway did not send
 * count as 0. A failed exchange (no connection, no or a bad confirmation) leaves them as they are, except as
 * stated.
 */
class QUORVEL_API CQuorvelClientI2C : public CQuorvelClient
{
  public:
    /** One step of a sequence. */
    struct I2CCommand {
        unsigned short nSlaveAddress; ///< 8-bit form; bit 0 set: a read step, clear: a write step
        unsigned short nDataLength;   ///< bytes to write, or to read
        char* pData; ///< the bytes to write, or the buffer for the bytes read, or null; the caller's
    };

    /**
     * A client that is not connected yet.
     * @param nTimeout default time-out in milliseconds, see CQuorvelClient
     */
    explicit CQuorvelClientI2C(int nTimeout);
    ~CQuorvelClientI2C() override;

    using CQuorvelClient::Open;

    /**
     * CQuorvelClient::Open, then SetBaudrate.
     * @param nBaudrate as in SetBaudrate
     * @return result code
     */
    int Open(unsigned int nBaudrate);

    /**
     * Sets the bus clock.
     * @param nBaudrate the clock in Hz; the values 100 and 400 mean kHz
     * @return result code
     */
    int SetBaudrate(unsigned int nBaudrate);

    /**
     * Reads the bus clock.
     * @param nBaudrate receives the clock in Hz
     * @return result code
     */
    int GetBaudrate(unsigned int& nBaudrate);

    /**
     * Has the gateway reset its bus interface.
     * @return result code
     */
    int Reset();

    /**
     * Reads from a slave.
     * @param nSlaveAddress slave address
     * @param pBuffer       receives the bytes read; must hold nLen. With null none is stored.
     * @param nLen          number of bytes to read
     * @param nBytesRead    receives how many bytes were stored, at most nLen; 0 when the exchange fails. A
     *                      confirmation without any data counts as nLen zeros.
     * @return result code
     */
    int Read(unsigned short nSlaveAddress, char* pBuffer, unsigned short nLen, unsigned short& nBytesRead);

    /**
     * Writes to a slave.
     * @param nSlaveAddress  slave address
     * @param pData          the bytes; null sends none
     * @param nLen           how many; at most 65526 fit a telegram
     * @param nErrorPosition receives the position at which the slave refused, if the gateway tells one
     * @return result code
     */
    int Write(unsigned short nSlaveAddress, const char* pData, unsigned short nLen,
              unsigned short& nErrorPosition);

    /** @name Single operations on the bus */
    ///@{

    /**
     * Sends a start condition.
     * @return result code
     */
    int RAWStart();

    /**
     * Sends one byte.
     * @param nValue the byte
     * @param nFlags acknowledge control, as the gateway defines it
     * @return result code
     */
    int RAWSend(unsigned char nValue, unsigned char nFlags);

    /**
     * Reads one byte.
     * @param nFlags acknowledge control, as the gateway defines it
     * @param nValue receives the byte
     * @return result code
     */
    int RAWGet(unsigned char nFlags, unsigned char& nValue);

    /**
     * Sends a stop condition.
     * @return result code
     */
    int RAWStop();
    ///@}

    /**
     * Runs a sequence of transfers in one telegram, given as bytes: for each step the slave address (16 bits,
     * little-endian; bit 0 set for reading), the length (16 bits) and, for a write step, that many bytes.
     * The outputs are left as they are when the confirmation holds no error index.
     * @param pSequence   the steps; null sends none
     * @param nLen        their length; at most 65526 bytes fit a telegram
     * @param pReadBuffer receives what all read steps read, one after the other; may be null
     * @param nReadLen    how many bytes the read steps read together
     * @param nBytesRead  receives how many bytes were stored
     * @param nErrorIndex receives the gateway's error index
     * @return result code
     */
    int WriteSequence(const char* pSequence, unsigned short nLen, char* pReadBuffer, unsigned short nReadLen,
                      unsigned short& nBytesRead, unsigned short& nErrorIndex);

    /**
     * Runs a sequence of transfers in one telegram, given as records.
     *
     * Every read step receives the first bytes that the whole sequence read, not those of its own step; use
     * the form above to tell the steps apart. It receives nDataLength bytes, or what is left: all read steps
     * together receive as many bytes as were read.
     * @param pCommands   the steps; may be null when there are none. A read step whose pData is null stores nothing.
     * @param nCount      how many
     * @param nErrorIndex receives the gateway's error index, if it tells one
     * @return result code; 0x00920000, with nothing sent, when pCommands is null and nCount is not 0, when a step
     *         writes nDataLength bytes and its pData is null, or when the steps take or read more than 65535 bytes
     */
    int WriteSequence(I2CCommand* pCommands, unsigned short nCount, unsigned short& nErrorIndex);

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

    /** @name Serial EEPROMs
     * The addressing word nAddressing tells how a memory takes its offset:
     *
     * | bits   | meaning                                                                                |
     * |--------|----------------------------------------------------------------------------------------|
     * | 0 to 7 | n: offset bits sent as offset bytes (one byte up to 8, two from 9 on)                  |
     * | 8, 9   | k: further offset bits, sent in the slave address                                      |
     * | 8 to 10| mode: where chip number and further offset bits sit in the slave address               |
     *
     * | mode                | chip number   | further offset bits |
     * |---------------------|---------------|---------------------|
     * | 0x000               | bits 1 to 3   | none                |
     * | 0x100               | bits 2 and 3  | bit 1               |
     * | 0x200               | bit 3         | bits 1 and 2        |
     * | 0x300, 0x700        | none          | bits 1 to 3         |
     * | 0x400               | none          | none                |
     * | 0x500               | bits 1 and 2  | bit 3               |
     * | 0x600               | bit 1         | bits 2 and 3        |
     *
     * Page boundaries and acknowledge polling are the gateway's business. */
    ///@{

    /**
     * The offset as the gateway takes it.
     * @param nOffset     the offset
     * @param nAddressing addressing word; bits 0 to 7 count in full here, and n + k modulo 32
     * @return four bytes, most significant first: the low n + k bits of the offset
     */
    static std::string ToOffset(unsigned int nOffset, unsigned short nAddressing);

    /**
     * The slave address of a memory.
     * @param nChip       chip number (the level of its address pins)
     * @param nOffset     offset in the memory
     * @param nAddressing addressing word; an n of more than 16 counts as 16
     * @return the slave address, 0xA0 to 0xAE, bit 0 clear
     */
    static unsigned short GetEEPROMSlaveAddress(unsigned short nChip, unsigned int nOffset,
                                                unsigned short nAddressing);

    /**
     * Writes to a memory.
     * @param nChip       chip number
     * @param nOffset     offset in the memory
     * @param nAddressing addressing word
     * @param pData       the bytes; null sends none
     * @param nLen        how many; at most 65521 fit a telegram
     * @return result code
     */
    int WriteEEProm(unsigned short nChip, unsigned int nOffset, unsigned short nAddressing, const char* pData,
                    unsigned short nLen);

    /**
     * Writes to a memory and has the gateway poll it until it acknowledges again.
     * @param nChip       chip number
     * @param nOffset     offset in the memory
     * @param nAddressing addressing word
     * @param pData       the bytes; null sends none
     * @param nLen        how many; at most 65519 fit a telegram
     * @param nPollValue  limit of the polling, as the gateway defines it
     * @return result code; 0x0125 when the memory did not acknowledge in time
     */
    int WriteEEPromPollAck(unsigned short nChip, unsigned int nOffset, unsigned short nAddressing,
                           const char* pData, unsigned short nLen, unsigned short nPollValue);

    /**
     * Reads from a memory. Of a gateway that puts two more bytes first, those behind them are taken.
     * @param nChip       chip number
     * @param nOffset     offset in the memory
     * @param nAddressing addressing word
     * @param pBuffer     receives the bytes read; must hold nLen. With null none is stored.
     * @param nLen        number of bytes to read
     * @param nBytesRead  receives how many bytes were stored, at most nLen, also when the gateway reports an error;
     *                    a confirmation without any data counts as nLen zeros
     * @return result code
     */
    int ReadEEProm(unsigned short nChip, unsigned int nOffset, unsigned short nAddressing, char* pBuffer,
                   unsigned short nLen, unsigned short& nBytesRead);
    ///@}

  protected:
    std::atomic<unsigned int> m_nBaudrate{100000}; ///< bus clock in Hz, as last set or read
};

#endif

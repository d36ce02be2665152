/**
 * @file QuorvelHexfile.h
 * @brief Memory images: Intel HEX, Motorola S-record and binary files, and hex dumps.
 */
#ifndef QUORVEL_HEXFILE_H
#define QUORVEL_HEXFILE_H

#include "QuorvelExport.h"

#include <cstddef>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/**
 * A sparse memory image: blocks of bytes at 32-bit addresses, read from a file and written to a file.
 *
 * LoadFile reads a file, GetMemoryBlocks gives what was in it, SaveFile writes it. Every function that reads
 * or writes a file returns an EResult as an unsigned number; it belongs to this class and is none of the
 * gateways' result codes. GetErrorMessage has the text that goes with it.
 *
 * An image that is used again must be cleared first, see ClearMemoryBlocks.
 *
 * An image is used by one thread at a time; different images may be used by different threads. When memory
 * runs out, std::bad_alloc is thrown.
 */
class QUORVEL_API CQuorvelHexfile
{
  public:
    /** File formats. */
    enum EType : unsigned int {
        eTypeAuto = 0,     ///< the first character decides: ':' Intel, 'S' Motorola, any other binary
        eTypeIntel = 1,    ///< Intel HEX
        eTypeMotorola = 2, ///< Motorola S-records
        eTypeBinary = 3    ///< the bytes of the memory from address 0 on
    };

    /** What loading and saving return. */
    enum EResult : unsigned int {
        eResultOk = 0,             ///< done; also when no file name was given and nothing was done
        eResultNotOpened = 0x80,   ///< the file cannot be opened or read, or is no regular file
        eResultNotSaved = 0x81,    ///< the file cannot be written; no writer reports it, see SaveFile
        eResultRecordType = 0x90,  ///< a record of an unknown type, or a file type that there is not
        eResultLineFormat = 0x91,  ///< a line that is no record, or is too short for its byte count
        eResultChecksum = 0x92,    ///< a wrong checksum (Intel HEX only; that of an S-record is not tested)
        eResultNoData = 0x93,      ///< the file is empty
        eResultNotAsBinary = 0x94, ///< the image does not start at 0 or has several blocks
    };

    /** The highest address an image can have. */
    static constexpr unsigned int m_nMaxAddressSupported = 0xFFFFFFFF;

    /** One run of bytes. */
    struct QUORVEL_API SMemoryBlock {
        unsigned int nAddress = 0; ///< address of the first byte
        unsigned int nLength = 0;  ///< number of bytes
        char* pData = nullptr;     ///< that many bytes, of new[] and owned; null only without bytes

        /** No bytes at address 0. */
        SMemoryBlock() = default;
        /**
         * A block with a copy of some bytes.
         * @param nStart address of the first byte
         * @param pBytes the bytes; null for zeros
         * @param nCount how many
         */
        SMemoryBlock(unsigned int nStart, const char* pBytes, unsigned int nCount);
        ~SMemoryBlock();
        SMemoryBlock(const SMemoryBlock&) = delete;
        SMemoryBlock& operator=(const SMemoryBlock&) = delete;

        /**
         * Compares the bytes; the addresses take no part in it.
         * @param oOther another block
         * @return true when both have the same bytes, wherever they are
         */
        bool operator==(const SMemoryBlock& oOther) const;
    };

    /**
     * What the readers collect bytes in: a map from page addresses (multiples of 4096) to pages of 4096
     * bytes, each with a flag that tells whether it was set. Costs 8 KiB for each page that is touched.
     */
    class QUORVEL_API CByteMap
    {
      public:
        /** One address. */
        struct SEntry {
            char nValue;   ///< the byte; 0 until set
            bool bPresent; ///< whether it was set
        };

        CByteMap() = default;
        ~CByteMap() = default;
        CByteMap(const CByteMap&) = delete;
        CByteMap& operator=(const CByteMap&) = delete;

        /**
         * Sets one byte; the last value of an address counts.
         * @param nAddress its address
         * @param nValue   its value
         */
        void SetByte(unsigned int nAddress, char nValue);

        /**
         * Access to a page, which is made if there is none yet.
         * @param nAddress an address
         * @return its entry, followed by those of the next addresses up to the end of the page
         */
        SEntry* GetEntries(unsigned int nAddress);

        /** Forgets all bytes. */
        void Clear();

        /**
         * Makes one block of every run of bytes at consecutive addresses, in ascending order. A run over all 4 GiB
         * becomes two blocks, of which the second begins at 0x80000000.
         * @param apBlocks receives the blocks, which the caller owns. Pointers that were in it are dropped:
         *                 the blocks they point to are not deleted.
         */
        void ToMemoryBlocks(std::vector<SMemoryBlock*>& apBlocks) const;

      protected:
        /** The addresses of a page. */
        using CPage = std::vector<SEntry>;

        std::map<unsigned int, CPage> m_aoPages; ///< by page address; always of full size
        unsigned int m_nLastPage = 0;            ///< address of the page used last
        CPage* m_pLastPage = nullptr;            ///< that page; null at first
    };

    /** An empty image. */
    CQuorvelHexfile();
    /** Deletes the blocks. */
    virtual ~CQuorvelHexfile();
    CQuorvelHexfile(const CQuorvelHexfile&) = delete;
    CQuorvelHexfile& operator=(const CQuorvelHexfile&) = delete;

    /** @name The image */
    ///@{
    /**
     * Appends a block. Blocks are neither sorted nor joined, and may overlap. The highest address is raised
     * to the block's end; the lowest is not touched, see RecalcMinMax. What a block holds beyond address
     * 0xFFFFFFFF is neither found by address nor saved as records.
     * @param pBlock the block, made with new; the image deletes it. Null is ignored.
     */
    void AddMemoryBlock(SMemoryBlock* pBlock);

    /**
     * Appends a block with a copy of some bytes; otherwise as above.
     * @param nAddress address of the first byte
     * @param pData    the bytes; null for zeros
     * @param nLength  how many
     */
    void AddMemoryBlock(unsigned int nAddress, const char* pData, unsigned int nLength);

    /**
     * Deletes the blocks. The lowest and the highest address stay as they are, and loading a file only ever
     * raises the highest and, for Intel HEX, lowers the lowest: call RecalcMinMax after this, or take a new
     * image.
     */
    void ClearMemoryBlocks();

    /**
     * Takes the lowest and the highest address from the blocks. Without any block the highest becomes 0 and
     * the lowest stays as it is.
     */
    void RecalcMinMax();

    /**
     * Reads one byte.
     * @param nAddress its address
     * @return the byte of the first block that has it; 0 when none has, or above the highest address
     */
    char GetDataByte(unsigned int nAddress) const;

    /**
     * Writes one byte: into the first block that has the address, else into a new block of one byte, which
     * is not joined with its neighbours.
     * @param nAddress its address
     * @param nValue   its value
     */
    void SetDataByte(unsigned int nAddress, char nValue);

    /** @return the sum of the blocks' lengths; what overlaps counts twice */
    unsigned int GetTotalBytes() const;

    /** @return the blocks: ascending after loading, later ones in the order of adding; owned by the image */
    const std::vector<SMemoryBlock*>& GetMemoryBlocks() const { return m_vecMemoryBlocks; }

    /** @return the format of the file that was loaded last; eTypeAuto before */
    EType GetType() const { return m_eType; }

    /** @return the lowest address, with the exceptions told at LoadFile and AddMemoryBlock */
    unsigned int GetMinAddress() const { return m_nMinAddress; }

    /** @return the highest address (that of the last byte), with the exceptions told at ClearMemoryBlocks */
    unsigned int GetMaxAddress() const { return m_nMaxAddress; }

    /** @return name of the file loaded last, or what SetFilename set */
    const std::string& GetFilename() const { return m_strFilename; }

    /**
     * @return what went wrong when loading or saving last; empty when nothing did, and for the eResultNotOpened of a
     *         binary file that has 4 GiB or more
     */
    const std::string& GetErrorMessage() const { return m_strErrorMessage; }

    /**
     * Names the image.
     * @param pName the name; null for "tmp1", "tmp2" and so on, counted over all images of the process
     */
    void SetFilename(const char* pName);

    /**
     * A size as text: "2 kbyte" for multiples of 1024 (0 is "0 kbyte"), else like "1500 byte".
     * @param nBytes number of bytes
     * @return the text
     */
    static std::string GetSizeString(int nBytes);
    ///@}

    /** @name Reading */
    ///@{
    /**
     * Loads a file.
     *
     * A faulty line does not end the loading: the other lines are loaded, and the result and the message are
     * those of the last faulty line. So after eResultRecordType, eResultLineFormat and eResultChecksum the
     * image holds all that could be read, including the bytes of Intel HEX lines with a wrong checksum. A
     * line of more than 1023 characters is the last one: what follows its first 1023 is not read.
     *
     * Text formats replace the list of blocks without deleting those that were in it, a binary file is
     * appended as one block at address 0: call ClearMemoryBlocks before if the image was used.
     *
     * After Intel HEX, GetMinAddress does not tell the lowest address (RecalcMinMax does): it is lowered by
     * extended address records only, to the address that these set, and starts at 0; only the first such
     * record in the life of the process sets it in any case.
     *
     * Messages:
     *
     * | result                              | text, NAME being the file's name                                 |
     * |-------------------------------------|------------------------------------------------------------------|
     * | eResultNotOpened                    | "File <NAME> could not be opened."; none from LoadFileBinary     |
     * | eResultLineFormat, eResultChecksum  | "File <NAME>: checksum error.\n\n", what the line's reader said, "\nIgnore error? " |
     * | any other                           | "File <NAME>: could not be opened.\n\n", what the line's reader said |
     *
     * What a line's reader says ends in the line, NUL characters (its line feed too) replaced by ".". The
     * message on a wrong checksum and on a type beyond eTypeBinary also goes to standard output.
     *
     * @param pFilename the file, which must be a regular one; with null nothing is done
     * @param eType     how to read it
     * @return an EResult
     */
    unsigned int LoadFile(const char* pFilename, EType eType);

    /**
     * Reads an open file: finds out its type and, unless that is binary, reads its lines. A part of LoadFile.
     * @param oFile the file
     * @param eType how to read it
     * @return an EResult
     */
    unsigned int AnalizeFile(std::ifstream& oFile, EType eType);

    /**
     * Reads one line of Intel HEX. Anything but a hex digit counts as the digit 0. Lines that are empty,
     * blank or begin with ';' are skipped, as is what follows the checksum. Records: 00 data, 01 end (reading
     * goes on all the same), 02 extended segment address, 04 extended linear address (missing bytes of either
     * count as 0), 05 start address (skipped). A record that reaches beyond 0xFFFFFFFF stores nothing and is
     * an eResultLineFormat.
     * @param strLine      the line; from a file, with a NUL in place of its line feed
     * @param oMap         receives the data bytes, also those of a line with a wrong checksum
     * @param nBaseAddress what the addresses are relative to; 0 at the start of a file
     * @return an EResult
     */
    unsigned int AnalizeLineIntel(const std::string& strLine, CByteMap& oMap, unsigned int& nBaseAddress);

    /**
     * Reads one S-record. Anything but a hex digit counts as the digit 0. S1, S2, S3 are data; S0, S5, S7,
     * S8, S9 and blank lines are skipped. The checksum is not tested. A record whose count is too small for
     * its address, or that reaches beyond 0xFFFFFFFF, stores nothing and is an eResultLineFormat.
     * @param strLine the line; from a file, with a NUL in place of its line feed
     * @param oMap    receives the data bytes
     * @return an EResult
     */
    unsigned int AnalizeLineMotorola(const std::string& strLine, CByteMap& oMap);

    /**
     * Appends the bytes of a file as one block at address 0. A part of LoadFile; sets no message.
     * @param pFilename a regular file of less than 4 GiB; null cannot be opened
     * @return eResultOk or eResultNotOpened
     */
    unsigned int LoadFileBinary(const char* pFilename);
    ///@}

    /** @name Writing */
    ///@{
    /**
     * Writes the image to a file, which is emptied first, even when the image turns out not to fit the
     * format. Messages:
     *
     * | result             | text, NAME being the file's name                             |
     * |--------------------|--------------------------------------------------------------|
     * | eResultNotOpened   | "File NAME could not be opened.\n\n"                         |
     * | eResultNotSaved    | "File NAME could not be saved.\n\n"                          |
     * | eResultNotAsBinary | see SaveAsFileBinary                                         |
     *
     * A disk that runs full is not reported: the result is 0 all the same. Read the file again where that
     * matters.
     *
     * @param pFilename the file; with null nothing is done
     * @param eType     eTypeIntel, eTypeMotorola; any other value means binary
     * @return an EResult
     */
    unsigned int SaveFile(const char* pFilename, EType eType);

    /**
     * Writes Intel HEX: data records of up to 16 bytes, an extended linear address record where the upper
     * half of the address changes, the end record. Upper-case digits, except in an extended address record
     * before the first data record. A record that starts below a 64 KiB boundary is not split there. Sets the
     * stream's std::ios::uppercase.
     * @param oFile the file
     * @return true
     */
    bool SaveAsFileIntel(std::ofstream& oFile);

    /**
     * Writes S-records: data records of up to 16 bytes with the shortest address that fits the first of them
     * (S1, S2, S3), no header and no end record.
     * @param oFile the file
     * @return true
     */
    bool SaveAsFileMotorola(std::ofstream& oFile);

    /**
     * Writes the bytes of the only block. For an image whose lowest address is not 0, or with more blocks,
     * the message becomes "Data could not be saved in binary format because of StartAddress != 0 OR multiple
     * blocks in hex data.\n\n" (one line). What counts as lowest address is GetMinAddress: a block that was
     * loaded from Intel HEX or added by hand may well lie elsewhere, and is written from file offset 0 on.
     * @param oFile the file
     * @return eResultOk (also for an image without blocks) or eResultNotAsBinary
     */
    unsigned int SaveAsFileBinary(std::ofstream& oFile);
    ///@}

    /**
     * @name Dumps
     * A line of a dump shows, for groups of 8 bytes, a blank and each byte as two upper-case digits and a
     * blank ("--" for a byte that is not there), and then all bytes as characters ("." for what cannot be
     * printed, a blank for what is not there). It has no address.
     *
     * All of them append to the zero-terminated text in the buffer, so a fresh buffer must begin with a NUL. No pointer
     * may be null, but that to the bytes and their flags when there are none.
     * A line of n bytes needs GetNumberOfBytesNeedForLine(n) characters, in a text of several lines with a
     * line feed in place of the NUL; the whole text needs one more for its NUL.
     */
    ///@{
    /**
     * Dumps a range of addresses, both limited to GetMaxAddress. When from is above to, the byte at to is
     * dumped. Blocks are expected in ascending order; what follows the first block above the range is not
     * looked at. Takes two bytes of memory for each byte of the range.
     * @param pOut          the text it is appended to
     * @param nBytesPerLine bytes in a line; with 0 nothing is appended
     * @param nFromAddress  first address
     * @param nToAddress    last address
     */
    void GetPrintDump(char* pOut, unsigned int nBytesPerLine, unsigned int nFromAddress,
                      unsigned int nToAddress) const;

    /**
     * Dumps from address 0 to GetMaxAddress, as above.
     * @param pOut          the text it is appended to
     * @param nBytesPerLine bytes in a line
     */
    void GetPrintDump(char* pOut, unsigned int nBytesPerLine) const;

    /**
     * Dumps an array: lines, each followed by a line feed, and a NUL.
     * @param pData         the bytes
     * @param pValid        for each byte, whether it is there
     * @param nSize         how many
     * @param pOut          the text it is appended to
     * @param nBytesPerLine bytes in a line; with 0 nothing is appended
     * @param nAddress      without effect
     */
    static void MemDump(const char* pData, const bool* pValid, unsigned int nSize, char* pOut,
                        unsigned int nBytesPerLine, unsigned int nAddress);

    /**
     * Dumps one line of an array, and a NUL.
     * @param pData         the bytes
     * @param pValid        for each byte, whether it is there
     * @param nSize         how many
     * @param nOffset       the line's first byte
     * @param pOut          the text it is appended to
     * @param pnLength      receives the length of the whole text in pOut with its NUL
     * @param nBytesPerLine bytes in a line; with 0 nothing is appended
     * @param nAddress      without effect
     */
    static void MemDumpLine(const char* pData, const bool* pValid, unsigned int nSize, unsigned int nOffset,
                            char* pOut, unsigned int* pnLength, unsigned int nBytesPerLine,
                            unsigned int nAddress);

    /**
     * The room one line takes: 4 n + ceil(n / 8) + 1 characters, 67 for 16 bytes.
     * @param nBytesPerLine bytes in a line, at most one thousand million
     * @return number of characters with the NUL
     */
    static unsigned int GetNumberOfBytesNeedForLine(unsigned int nBytesPerLine);
    ///@}

  protected:
    EType m_eType;                                ///< format of the file loaded last
    unsigned int m_nMaxAddress;                   ///< highest address, 0 when empty
    unsigned int m_nMinAddress;                   ///< lowest address
    std::vector<SMemoryBlock*> m_vecMemoryBlocks; ///< the blocks, owned
    std::string m_strFilename;                    ///< name of the file
    std::string m_strErrorMessage;                ///< text of the last error

  private:
    unsigned int Analize(const std::function<std::size_t(char* pBuffer, std::size_t nMax)>& fnRead,
                         EType eType);
    unsigned int LineIntel(std::string_view strLine, CByteMap& oMap, unsigned int& nBaseAddress);
    unsigned int LineMotorola(std::string_view strLine, CByteMap& oMap);
    unsigned int LineFault(EResult eResult, const char* pText, std::string_view strLine);
    unsigned int NoRecord(std::string_view strLine);
};

#endif

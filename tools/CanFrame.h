// CAN frames and their texts, as candump and cansend have them.
#ifndef QUORVEL_TOOL_CAN_FRAME_H
#define QUORVEL_TOOL_CAN_FRAME_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One frame of a CAN bus.
struct SCanFrame {
    enum EKind : unsigned char { eClassic, eFd, eXl };

    EKind eKind = eClassic;
    bool bExtended = false;          ///< an identifier of 29 bits
    bool bRemote = false;            ///< a remote frame: no data, but a length
    bool bError = false;             ///< not a frame, but a controller's report on errors
    std::uint32_t nIdentifier = 0;   ///< 11 or 29 bits; error frame: the class; XL: the priority
    unsigned char nRemoteLength = 0; ///< what a remote frame asks for, 0 to 8
    unsigned char nRawDlc = 0;       ///< 9 to 15 when a length of 8 is sent so, else 0
    unsigned char nFdFlags = 0;      ///< FD: 1 bit rate switched, 2 error state indicator
    unsigned char nVcid = 0;         ///< XL: virtual CAN network
    unsigned char nXlFlags = 0;      ///< XL: flags
    unsigned char nSdt = 0;          ///< XL: SDU type
    std::uint32_t nAcceptance = 0;   ///< XL: acceptance field
    std::string strData;             ///< up to 8 bytes, FD 64, XL 2048

    /// @return the length in the frame
    std::size_t GetLength() const { return bRemote ? nRemoteLength : strData.size(); }

    bool operator==(const SCanFrame&) const = default;
};

/**
 * Reads a frame's text: 123#11223344, 12345678#R5, 213##3AABB, 45123#81:00:12345678#1122, ...
 * @param strText  the whole text
 * @param strError receives what is wrong
 * @return the frame; nothing when it is none
 */
std::optional<SCanFrame> ParseFrame(std::string_view strText, std::string& strError);

/// Appends a frame's text. @param bRawDlc with _9 to _F where the length of 8 was sent so
void AppendFrame(std::string& strText, const SCanFrame& oFrame, bool bRawDlc = false);

/// How frames are shown on a screen.
struct SScreenForm {
    bool bAscii = false;  ///< characters behind the data
    bool bRawDlc = false; ///< {F} instead of [8]
    bool bIndent = false; ///< short identifiers in line with long ones
};

/// Appends a classic or FD frame as candump shows it, from the identifier on.
void AppendScreen(std::string& strText, const SCanFrame& oFrame, const SScreenForm& oForm);

/// Which frames are wanted, in candump's words: 123:7FF,400~7F0,#FFFFFFFF,j
class CCanFilter
{
  public:
    /// Adds filters. @param strText separated by commas @return false when a part is none; strError has it
    bool Parse(std::string_view strText, std::string& strError);

    /// @return true for a frame that is wanted
    bool Passes(const SCanFrame& oFrame) const;

    /// Identifier and mask; bit 31 stands for 29 bits, bit 30 for a remote frame.
    struct SPair {
        std::uint32_t nIdentifier;
        std::uint32_t nMask;
        bool bInverted;
    };

    /// @return the pairs
    const std::vector<SPair>& GetPairs() const { return m_aoPairs; }

    /// Reads 123:7FF or 400~7F0. @return nothing when it is neither
    static std::optional<SPair> ParsePair(std::string_view strText);

  private:
    std::vector<SPair> m_aoPairs;
    std::uint32_t m_nErrorMask = 0;
    bool m_bJoin = false;
};

#endif

/**
 * @file FaultPlan.h
 * @brief What goes wrong on a connection to a simulated gateway.
 */
#ifndef QUORVEL_SIM_FAULT_PLAN_H
#define QUORVEL_SIM_FAULT_PLAN_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/** What happens to one answer. Where several apply, they all do, in the order of the members. */
struct SAnswerFaults {
    std::optional<unsigned char> oResult; ///< result byte, forced
    std::optional<std::size_t> oTruncate; ///< at most so many data bytes
    std::size_t nExtend = 0;              ///< so many further data bytes
    std::optional<unsigned> oID;          ///< another telegram id; above 0xFFFF: the right one plus 1
    std::optional<unsigned> oCode; ///< another command code; above 0xFFFF: the right one, lowest bit flipped
    bool bBadCheck = false;        ///< inverted check byte
    int nLengthShift = 0;          ///< added to the length field only
    unsigned nDelayMs = 0;         ///< comes later; other requests are answered meanwhile
    bool bSilent = false;          ///< from here on nothing is sent
    unsigned nFlood = 0;           ///< so many indications come first
    bool bDrop = false;            ///< is not sent
    bool bClose = false;           ///< the connection is closed instead
    bool bHalfClose = false;       ///< the sending direction ends instead
    bool bRestart = false;         ///< the gateway restarts instead
    bool bReset = false;           ///< the first half is sent, then the connection is reset
    bool bDuplicate = false;       ///< is sent twice
    unsigned nGlue = 1;            ///< is held until so many answers go out as one segment
    std::size_t nSplit = 0;        ///< goes out in segments of so many bytes; 0: in one
};

/**
 * A plan of faults, written as text: steps separated by ';', each "name", "name=value", with "@n", "@n-m" or
 * "@n-" behind it when it concerns only some answers of the connection, counted from 1. Grammar() lists the
 * steps. The empty plan has no faults.
 */
class CFaultPlan
{
  public:
    /**
     * Reads a plan.
     * @param strText the text
     * @param oPlan the plan read; unchanged when the text is bad
     * @param strError names the bad step and what is wrong with it
     * @return whether the text was good
     */
    static bool Parse(const std::string& strText, CFaultPlan& oPlan, std::string& strError);

    /// The steps, one a line, as the program's help shows them.
    static std::string Grammar();

    /// What happens to answer nAnswer (1, 2, ...).
    SAnswerFaults At(unsigned nAnswer) const;

  private:
    struct SStep {
        std::size_t nKind = 0;
        unsigned nValue = 0;
        unsigned nFirst = 1;
        unsigned nLast = 0;
    };

    static bool ParseStep(const std::string& strStep, SStep& oStep, std::string& strError);

    std::vector<SStep> m_aoSteps;
};

#endif

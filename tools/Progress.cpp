#include "Progress.h"

#include <fmt/format.h>
#include <unistd.h>

namespace
{

constexpr unsigned COLUMNS = 50;

EProgress Choose(const CTool::SOptions& oOptions)
{
    if (oOptions.eProgress != EProgress::eAuto)
        return oOptions.eProgress;
    if (oOptions.bQuiet)
        return EProgress::eNone;
    return ::isatty(STDERR_FILENO) != 0 ? EProgress::eBar : EProgress::ePlain;
}

} // namespace

CProgress::CProgress(CTool& oTool, std::string strTitle, std::uint64_t nTotal)
    : m_strTitle(std::move(strTitle)), m_nTotal(nTotal), m_eProgress(Choose(oTool.GetOptions()))
{
    if (m_eProgress == EProgress::ePlain)
        fmt::print(stderr, "{} | ", m_strTitle);
    Show(0, false);
}

CProgress::~CProgress()
{
    if (!m_bFinished)
        Show(m_nPercent, true);
}

void CProgress::Update(std::uint64_t nDone)
{
    m_nDone = nDone;
    const auto nPercent = m_nTotal == 0 ? 0U : static_cast<unsigned>(nDone * 100 / m_nTotal);
    if (nPercent == m_nPercent || nPercent >= 100)
        return;
    m_nPercent = nPercent;
    Show(nPercent, false);
}

void CProgress::Finish()
{
    m_bFinished = true;
    m_nDone = m_nTotal;
    m_nPercent = 100;
    Show(100, false);
}

void CProgress::Show(unsigned nPercent, bool bFailed)
{
    const double dSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - m_oStart).count();
    const unsigned nColumns = nPercent * COLUMNS / 100;
    const bool bEnd = m_bFinished || bFailed;
    switch (m_eProgress) {
    case EProgress::eBar:
        fmt::print(stderr, "\r{} | {}{} | {}% {:.2f} s {}", m_strTitle, std::string(nColumns, '#'),
                   std::string(COLUMNS - nColumns, bFailed ? '-' : ' '), nPercent, dSeconds,
                   bEnd ? "\n" : "");
        break;
    case EProgress::ePlain:
        for (; m_nColumns < nColumns; ++m_nColumns)
            static_cast<void>(std::fputc('#', stderr));
        if (bEnd)
            fmt::print(stderr, "{} | {}% {:.2f} s\n", std::string(COLUMNS - nColumns, '-'), nPercent,
                       dSeconds);
        break;
    case EProgress::eJson: {
        CJson oLine{{"title", m_strTitle},
                    {"done", m_nDone},
                    {"total", m_nTotal},
                    {"percent", nPercent},
                    {"seconds", dSeconds},
                    {"bytes_per_second", dSeconds > 0 ? static_cast<double>(m_nDone) / dSeconds : 0.0},
                    {"state", m_bFinished ? "done"
                              : bFailed   ? "failed"
                                          : "running"}};
        fmt::print(stderr, "{}\n", oLine.dump());
        break;
    }
    case EProgress::eAuto:
    case EProgress::eNone:
        break;
    }
}

// Writes the manual pages and the completion scripts of the command; part of the build, not installed.
//
// usage: quorvel-manual DIRECTORY-OF-PAGES DIRECTORY-OF-COMPLETIONS

#include "Completion.h"
#include "Manual.h"
#include "Tool.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <map>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 3)
        return eStatusUsage;
    try {
        CTool oTool;
        std::map<std::string, std::string> astrFiles;
        for (const auto& [strName, strPage] : MakeManuals(oTool.GetApp()))
            astrFiles[std::string(argv[1]) + "/" + strName] = strPage;
        const std::string strCompletions = std::string(argv[2]) + "/";
        astrFiles[strCompletions + "quorvel"] = MakeCompletion(oTool.GetApp(), EShell::eBash);
        astrFiles[strCompletions + "_quorvel"] = MakeCompletion(oTool.GetApp(), EShell::eZsh);
        astrFiles[strCompletions + "quorvel.fish"] = MakeCompletion(oTool.GetApp(), EShell::eFish);
        for (const auto& [strPath, strText] : astrFiles) {
            std::ofstream oFile(strPath, std::ios::binary);
            oFile << strText;
            if (!oFile.flush()) {
                std::fprintf(stderr, "quorvel-manual: cannot write %s\n", strPath.c_str());
                return eStatusFile;
            }
        }
    } catch (const std::exception& oError) {
        std::fprintf(stderr, "quorvel-manual: %s\n", oError.what());
        return eStatusFile;
    }
    return eStatusDone;
}

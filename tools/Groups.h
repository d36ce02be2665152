// The groups of verbs; each adds itself to the command line.
#ifndef QUORVEL_TOOL_GROUPS_H
#define QUORVEL_TOOL_GROUPS_H

class CTool;

void AddAnyKind(CTool& oTool); ///< info, status, restart, ping, scan, digital, analog
void AddSpi(CTool& oTool);
void AddI2c(CTool& oTool);
void AddCan(CTool& oTool);
void AddCanOpen(CTool& oTool);
void AddAWire(CTool& oTool);
void AddRenesas(CTool& oTool);
void AddTestSystem(CTool& oTool);
void AddFirmware(CTool& oTool);
void AddImage(CTool& oTool);
void AddGeneral(CTool& oTool); ///< error, kinds, completion

/// Adds all of them, in the order of the help.
inline void AddAllGroups(CTool& oTool)
{
    AddAnyKind(oTool);
    AddSpi(oTool);
    AddI2c(oTool);
    AddCan(oTool);
    AddCanOpen(oTool);
    AddAWire(oTool);
    AddRenesas(oTool);
    AddTestSystem(oTool);
    AddFirmware(oTool);
    AddImage(oTool);
    AddGeneral(oTool);
}

#endif

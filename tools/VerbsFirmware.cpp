#include "Groups.h"

void AddFirmware(CTool& /*oTool*/) {}

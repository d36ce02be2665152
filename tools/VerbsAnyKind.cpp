#include "Groups.h"

void AddAnyKind(CTool& /*oTool*/) {}

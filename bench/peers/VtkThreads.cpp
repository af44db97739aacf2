#include "VtkThreads.h"

#include <vtkSMPTools.h>

void useOneVtkThread() { vtkSMPTools::Initialize(1); }

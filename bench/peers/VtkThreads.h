#pragma once

/// All VTK filters work in the calling thread from now on.
void useOneVtkThread();

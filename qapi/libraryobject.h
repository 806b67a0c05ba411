// Inside the base library only: the object behind a qApiLib. It has no state: what the library keeps lives as
// long as the library is loaded, whatever becomes of its handles.
#pragma once

struct qApiLibObject {};

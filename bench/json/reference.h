// The library that ours is compared with. It lives in a shared library of its own, because ours holds a part
// of it.
#pragma once

// Adds its cases.
__attribute__((visibility("default"))) void RegisterReference();

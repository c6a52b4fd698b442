// The library's attach hook: turns off the calls for threads that start and end while the library is loaded.
//
// Windows refuses this for a library with static thread-local storage. A MinGW build always has some, for the runtime's
// own thread hooks, so there the call fails, and the hook ignores the thread calls. The result is not checked: the
// library works either way.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(library);
  return TRUE;
}

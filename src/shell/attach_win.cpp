// The library's attach hook: threads that come and go while the library is loaded need not call in here.
//
// The system grants that only to a library without static thread-local storage. What MinGW links always has some, for
// its runtime's own thread hooks, so in such a build the call fails and threads go on calling in, where nothing is done
// for them. That is no reason to refuse to load.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(library);
  return TRUE;
}

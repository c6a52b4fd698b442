/* Forwards a mixed-case spelling, see Winsock2.h in this folder. */
#include <windows.h>

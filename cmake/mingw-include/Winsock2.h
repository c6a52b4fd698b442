/* Windows file systems ignore case, Linux ones do not: this folder forwards the
 * mixed-case spellings that POCO includes to the lower-case headers of mingw-w64. */
#include <winsock2.h>

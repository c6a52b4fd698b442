/* Forwards a mixed-case spelling, see Winsock2.h in this folder. */
#include <iphlpapi.h>

/* ipexport.h, reached through iphlpapi.h, defines these two as macros, and
 * Poco::Net::ICMPv4PacketImpl has enumerators of the same names. */
#undef TIMESTAMP_REQUEST
#undef TIMESTAMP_REPLY

// The tables of checks and rules.
#include "refhost/app/drive/drive_rules.h"

#include <iterator>

namespace fenlux::refhost {
namespace {

constexpr DriveCheckText kChecks[] = {
    {"connect", "accepts every connection of the module", "the module did not connect", "attempt", "attempts"},
    {"connection", "keeps the connection until the module closes it", "there was no connection", "connection",
     "connections"},
    {"reconnect", "accepts a new connection after the module closed the last one", "not tried", "connection",
     "connections"},
    {"requests", "accepts every command", "the module sent no request", "request", "requests"},
    {"request-time", "answers every request in time", "the module sent no request", "request", "requests"},
    {"version-reply", "answers request 13 with its version", "the module did not ask", "reply", "replies"},
    {"notification-size", "sends messages of 156 to 196764 bytes", "the driver sent no notification", "notification",
     "notifications"},
    {"notification-code", "sends only the codes of the protocol", "the driver sent no notification", "notification",
     "notifications"},
    {"notification-items", "keeps items within the message", "the driver sent no item", "item", "items"},
    {"notification-texts", "sends texts of whole units that end with a NUL", "the driver sent no text", "text",
     "texts"},
    {"replies", "waits for every reply and accepts it", "the driver sent no notification", "notification",
     "notifications"},
};
static_assert(std::size(kChecks) == kDriveChecks);

// In the order of DriveRule.
constexpr DriveRuleText kRules[] = {
    {DriveCheck::kConnect,
     "a connection with this context is accepted: 16 bytes, magic 0x2518d52534ac4c62, version 200, client type 1 or 2",
     "Connect context",
     "accept the connection: compare the context with the header's FenluxParseConnectContext, and allow one connection "
     "on the port"},
    {DriveCheck::kConnect, "the module waits until the driver has accepted the connection or refused it", "Connect",
     "do not wait in the routine that accepts connections"},
    {DriveCheck::kConnection, "a connection lasts until the module closes it, or the driver is unloaded", "Disconnect",
     "keep the port open; do not close it for a request or a reply that you do not like"},
    {DriveCheck::kReconnect, "the module connects again 5 seconds after a connection has ended", "On disconnect",
     "forget the old connection when its port is closed, so that the next one does not count as a second one"},
    {DriveCheck::kRequests,
     "the driver accepts each of the 15 commands; one that it rejects counts as failed, and the "
     "module does not repeat it",
     "Requests",
     "accept the command. If your driver has no use for it, ignore it and report success; do not check the bytes that "
     "the command does not use"},
    {DriveCheck::kRequestTime, "the module's thread waits until the driver has accepted the request",
     "Order and concurrency of requests", "complete the request without waiting for another request or for a reply"},
    {DriveCheck::kRequestTime, "the module's thread waits until the driver has accepted the request",
     "Order and concurrency of requests", "complete the request first, then do what takes long"},
    {DriveCheck::kVersionReply, "the driver answers request 13 with a reply of at least 65561 bytes",
     "13: version, and the version reply",
     "fill the output buffer of the request: magic and command at 0, the version at 12, and return 65561 bytes"},
    {DriveCheck::kVersionReply, "the reply has at least 65561 bytes; the module treats a shorter one as version 0",
     "13: version, and the version reply", "return 65561 bytes, not only the fields"},
    {DriveCheck::kVersionReply,
     "a version reply begins with magic 0x8f79ffe729a34ae3 and command 13, although this "
     "module does not read them",
     "13: version, and the version reply", "copy the first 12 bytes of the request into the reply"},
    {DriveCheck::kVersionReply, "the version is the u32 at 12; the module warns if it is not its own",
     "13: version, and the version reply",
     "report the version that the driver was written for; 0 means that nothing was written at 12"},
    {DriveCheck::kNotificationSize,
     "a notification has a fixed part of 156 bytes; the module answers a shorter one "
     "with verdict 8",
     "Notification", "send the whole fixed part, with zeros in unused fields"},
    {DriveCheck::kNotificationSize, "a notification has at most 196764 bytes; the port client cannot receive more",
     "The records at a glance", "shorten the items"},
    {DriveCheck::kNotificationCode,
     "codes are 4097 to 4118 without 4115, and 8193 to 8206; the module answers others "
     "with verdict 8",
     "Codes", "write a code of the protocol at 20, little-endian"},
    {DriveCheck::kNotificationItems,
     "items follow each other from 156 on, each as long as its length says; one that "
     "is not in the message makes it malformed",
     "Items", "send as many bytes as the lengths say, or a length of 0 for an absent item"},
    {DriveCheck::kNotificationTexts, "texts are UTF-16, little-endian: two bytes for each unit", "Items",
     "give lengths in bytes, as a multiple of two"},
    {DriveCheck::kNotificationTexts,
     "a length counts the NUL; the module reads a text up to a NUL, and so into the "
     "next item if there is none",
     "Items", "end the text with a NUL and count its two bytes in the length"},
    {DriveCheck::kReplies, "a reply may take as long as the agent's judge; the driver needs a deadline and a default",
     "If no reply comes", "wait longer for replies, and receive them while other operations wait"},
    {DriveCheck::kReplies, "every code but 4113 is answered with a verdict", "Notification",
     "send the notification with room for a reply of 156 bytes or more, and wait for it"},
    {DriveCheck::kReplies, "code 4113 gets no reply; a reply has 156 bytes, or more with context data", "Reply",
     "do not wait for a reply to code 4113; for the others, give the reply buffer room for the context data you agreed "
     "on, and 158 bytes more"},
};
static_assert(std::size(kRules) == kDriveRules &&
              static_cast<std::size_t>(DriveRule::kReplyRefused) + 1 == kDriveRules);

}  // namespace

const DriveCheckText& TextOf(DriveCheck check) { return kChecks[static_cast<std::size_t>(check)]; }

const DriveRuleText& TextOf(DriveRule rule) { return kRules[static_cast<std::size_t>(rule)]; }

}  // namespace fenlux::refhost

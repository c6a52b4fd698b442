// Rethrows the exception being handled and describes it by its kind.
#include "common/exception_report.h"

#include <Poco/Exception.h>

#include <boost/system/system_error.hpp>
#include <exception>

#include "common/text.h"

namespace fenlux {
namespace {

std::string Opening(std::string_view tag, std::string_view rest) {
  std::string line;
  line.append("[").append(tag).append(rest);
  return line;
}

// A description may be null: an exception's what() is virtual and may return anything.
std::string_view TextOrEmpty(const char* text) { return text != nullptr ? std::string_view(text) : std::string_view(); }

std::string ConvertedMessage(const boost::system::error_code& code, const MessageConverter& convert) {
  std::string message = code.message();
  try {
    return convert(message);
  } catch (...) {
    return message;  // a report with the original message is better than none
  }
}

}  // namespace

std::string ReportCurrentException(std::string_view tag, std::string_view otherTag) {
  try {
    throw;
  } catch (const std::exception& error) {
    return Opening(tag, ",STDE] info=").append(TextOrEmpty(error.what()));
  } catch (...) {
    return Opening(otherTag.empty() ? tag : otherTag, ",OTHE]");
  }
}

std::string ReportCurrentExceptionByKind(std::string_view tag, const MessageConverter& convert) {
  try {
    throw;
  } catch (const Poco::Exception& error) {
    std::string line = Opening(tag, ",PCE] code=");
    AppendDecimal(line, error.code());
    return line.append(",info=").append(error.displayText());
  } catch (const boost::system::system_error& error) {
    std::string line = Opening(tag, ",BSTE] code=");
    line.append(TextOrEmpty(error.code().category().name())).append(":");
    AppendDecimal(line, error.code().value());
    return line.append(",info=").append(ConvertedMessage(error.code(), convert));
  } catch (...) {
    return ReportCurrentException(tag);
  }
}

}  // namespace fenlux

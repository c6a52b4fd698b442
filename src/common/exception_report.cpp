// One reporter for every guarded region: rethrow what is being handled, and describe it by its kind.
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

std::string ConvertedMessage(const boost::system::error_code& code, const MessageConverter& convert) {
  std::string message = code.message();
  try {
    return convert(message);
  } catch (...) {
    return message;  // a line with the raw message beats no line
  }
}

}  // namespace

std::string ReportCurrentException(std::string_view tag, std::string_view otherTag) {
  try {
    throw;
  } catch (const std::exception& error) {
    return Opening(tag, ",STDE] info=").append(error.what());
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
    line.append(error.code().category().name()).append(":");
    AppendDecimal(line, error.code().value());
    return line.append(",info=").append(ConvertedMessage(error.code(), convert));
  } catch (...) {
    return ReportCurrentException(tag);
  }
}

}  // namespace fenlux

// A small HTTP server with few threads and short timeouts: a stalled scraper ties up only its own connection.
#include <Poco/Exception.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>
#include <Poco/ThreadPool.h>
#include <fmt/format.h>

#include <cerrno>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include "refhost/app/metrics/metrics_server.h"

namespace fenlux::refhost {
namespace {

namespace net = Poco::Net;

constexpr char kPath[] = "/metrics";
constexpr int kThreads = 2;
constexpr int kWaitingConnections = 16;
constexpr long kTimeoutSeconds = 5;

using Text = std::function<std::string()>;

class Handler final : public net::HTTPRequestHandler {
 public:
  explicit Handler(const Text& metricsText) : text(metricsText) {}

  void handleRequest(net::HTTPServerRequest& request, net::HTTPServerResponse& response) override {
    using Status = net::HTTPResponse::HTTPStatus;
    const std::string& method = request.getMethod();
    const std::string path = request.getURI().substr(0, request.getURI().find('?'));
    if (path != kPath) return Send(response, Status::HTTP_NOT_FOUND, "the metrics are at /metrics\n");
    if (method != net::HTTPRequest::HTTP_GET && method != net::HTTPRequest::HTTP_HEAD) {
      response.set("Allow", "GET, HEAD");
      return Send(response, Status::HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD\n");
    }
    std::string body;
    try {
      body = text();
    } catch (const std::exception& error) {
      return Send(response, Status::HTTP_INTERNAL_SERVER_ERROR, fmt::format("{}\n", error.what()));
    }
    response.setContentType("text/plain; version=0.0.4; charset=utf-8");
    response.sendBuffer(body.data(), body.size());
  }

 private:
  static void Send(net::HTTPServerResponse& response, net::HTTPResponse::HTTPStatus status, const std::string& line) {
    response.setStatusAndReason(status);
    response.setContentType("text/plain; charset=utf-8");
    response.sendBuffer(line.data(), line.size());
  }

  const Text& text;
};

class HandlerFactory final : public net::HTTPRequestHandlerFactory {
 public:
  explicit HandlerFactory(Text metricsText) : text(std::move(metricsText)) {}

  net::HTTPRequestHandler* createRequestHandler(const net::HTTPServerRequest& /*request*/) override {
    return std::make_unique<Handler>(text).release();  // the server deletes it
  }

 private:
  const Text text;
};

net::HTTPServerParams::Ptr Parameters() {
  net::HTTPServerParams::Ptr parameters(new net::HTTPServerParams);
  parameters->setMaxThreads(kThreads);
  parameters->setMaxQueued(kWaitingConnections);
  parameters->setKeepAlive(false);
  parameters->setTimeout(Poco::Timespan(kTimeoutSeconds, 0));
  return parameters;
}

}  // namespace

bool MetricsExist() { return true; }

class MetricsServer::Body {
 public:
  explicit Body(const MetricsSettings& settings) {
    try {
      // The port is not shared: another host's metrics must not be mixed with ours.
      constexpr bool kReuseAddress = true;
      constexpr bool kReusePort = false;
      socket.bind(net::SocketAddress(settings.address, settings.port), kReuseAddress, kReusePort);
      socket.listen(kWaitingConnections);
    } catch (const Poco::Exception& error) {
      const std::string text =
          fmt::format("cannot serve metrics on {} port {}: {}; choose another address with [metrics] listen",
                      settings.address, settings.port, error.displayText());
      if (error.code() == EADDRINUSE) throw MetricsPortTaken(text);
      throw std::runtime_error(text);
    }
  }

  void Start(Text text) {
    try {
      const net::HTTPRequestHandlerFactory::Ptr factory(std::make_unique<HandlerFactory>(std::move(text)).release());
      server.emplace(factory, threads, socket, Parameters());
      server->start();
    } catch (const Poco::Exception& error) {
      throw std::runtime_error("cannot serve metrics: " + error.displayText());
    }
  }

  void Stop() {
    if (server) server->stopAll(true);
    server.reset();
  }

  std::string Url() const { return fmt::format("http://{}{}", socket.address().toString(), kPath); }

 private:
  net::ServerSocket socket;
  Poco::ThreadPool threads{1, kThreads};
  std::optional<net::HTTPServer> server;
};

MetricsServer::MetricsServer(const MetricsSettings& settings) : body(std::make_unique<Body>(settings)) {}
MetricsServer::~MetricsServer() { Stop(); }
void MetricsServer::Start(std::function<std::string()> text) { body->Start(std::move(text)); }
void MetricsServer::Stop() { body->Stop(); }
std::string MetricsServer::Url() const { return body->Url(); }

}  // namespace fenlux::refhost

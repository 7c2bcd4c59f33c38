// The HTTP interface without HTTP: a request in, a status and JSON out. docs/server.md lists the
// resources. Errors are {"error": text} with status 400 (bad request), 404 (no such device,
// operation or resource), 405 or 415.
#pragma once

#include "server/engine.h"
#include "server/image_file.h"
#include "server/json.h"
#include "server/store.h"
#include "server/target.h"

#include <functional>
#include <string>

namespace server {

struct ApiRequest {
  std::string method;
  std::string target; ///< path and query as they stand in the request line
  std::string content_type;
  std::string body;
};

struct ApiReply {
  int status = 200;
  Json body;
};

class Api {
public:
  Api(Engine& engine, Store& store, ImageFiles& images, std::function<Clock()> clock)
      : engine_(engine), store_(store), images_(images), clock_(std::move(clock)) {}

  ApiReply handle(const ApiRequest& request);

private:
  ApiReply get(const std::vector<std::string>& path, const Query& query);
  ApiReply post(const std::vector<std::string>& path, const std::string& body);
  Json summary();
  Json device_list();
  Json device_part(const Device& device, const std::string& part, const Query& query);
  Command command(const std::string& verb, const Json& body);

  Engine& engine_;
  Store& store_;
  ImageFiles& images_;
  std::function<Clock()> clock_;
};

} // namespace server

#include "LiveView.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include "LiveViewAssets.h"
#include "ReferenceService.h"
#include "ReportCheck.h"
#include "platform/internal/HttpText.h"

namespace zelnora_tools {
namespace {

// A quiet stream still sends a comment this often, so that a closed page frees its thread.
constexpr std::chrono::seconds kHeartbeat{5};
// The page keeps the newest requests; the download has them all.
constexpr std::size_t kKeptEntries = 5000;

long long millisecondsSinceEpoch() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string dumped(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void addReport(const RecordedRequest& request, nlohmann::ordered_json& entry) {
  if (request.method != "POST" || request.path != "/tracker/app") return;
  entry["problems"] = reportProblems(request.body);
  const auto body = nlohmann::ordered_json::parse(request.body, nullptr, false);
  if (body.is_object() && body.contains("events") && body["events"].is_array()) {
    entry["events"] = body["events"];
  }
}

std::string sseEvent(std::string_view name, std::string_view data) {
  return "event: " + std::string(name) + "\ndata: " + std::string(data) + "\n\n";
}

void serveAsset(httplib::Response& response, std::string_view body, const char* type) {
  response.set_header("Cache-Control", "no-store");
  response.set_content(std::string(body), type);
}

// Another site's page can post a form to a loopback port without asking; it cannot send a JSON
// body without the browser asking this service first, which it never allows.
bool isJsonPost(const httplib::Request& request) {
  return platform::http::startsWithIgnoringCase(request.get_header_value("Content-Type"),
                                                "application/json");
}

void sendAnswer(httplib::Response& response, const ServiceAnswer& answer) {
  response.status = answer.status;
  response.set_content(answer.body, answer.contentType.c_str());
}

// A page of another site whose name it pointed at this machine (DNS rebinding) sends its own name
// as Host; the inspector answers only to the loopback names.
bool namesLoopback(std::string_view host) {
  const auto end = host.starts_with('[') ? host.find(']') + 1 : host.find(':');
  const std::string_view name = host.substr(0, end);
  return name == "127.0.0.1" || name == "[::1]" ||
         platform::http::equalsIgnoringCase(name, "localhost");
}

using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

Handler forLoopbackNames(Handler handler) {
  return [handler = std::move(handler)](const httplib::Request& request,
                                        httplib::Response& response) {
    if (namesLoopback(request.get_header_value("Host"))) return handler(request, response);
    sendAnswer(response,
               ServiceAnswer{
                   403, R"({"error":"open the inspector at 127.0.0.1"})", "application/json", {}});
  };
}

ServiceAnswer notJson() {
  return ServiceAnswer{
      415,
      R"json({"error":"changes are JSON bodies (Content-Type: application/json)"})json",
      "application/json",
      {}};
}

}  // namespace

std::string inspectorEntryJson(std::size_t sequence, long long answeredAt,
                               const RecordedRequest& request, int status) {
  nlohmann::ordered_json entry;
  entry["seq"] = sequence;
  entry["time"] = answeredAt;
  entry["method"] = request.method;
  entry["path"] = request.path;
  entry["query"] = request.query;
  entry["status"] = status;
  nlohmann::ordered_json headers = nlohmann::ordered_json::array();
  for (const auto& [name, value] : request.headers) headers.push_back({name, value});
  entry["headers"] = std::move(headers);
  entry["body"] = request.body;
  addReport(request, entry);
  return dumped(entry);
}

class Inspector::Entry {
 public:
  Entry(std::size_t sequence, const RecordedRequest& request, int status)
      : sequence_(sequence),
        answeredAt_(millisecondsSinceEpoch()),
        request_(request),
        status_(status) {}

  // Any thread; the first caller renders, the others wait for it.
  const std::string& json() {
    std::call_once(rendered_, [this] {
      json_ = inspectorEntryJson(sequence_, answeredAt_, request_, status_);
      request_ = {};  // the rendering holds all of it now
    });
    return json_;
  }

 private:
  std::size_t sequence_;
  long long answeredAt_;
  RecordedRequest request_;
  int status_;
  std::once_flag rendered_;
  std::string json_;
};

Inspector::Inspector(ReferenceService& service) : service_(service) {}

void Inspector::install(httplib::Server& server) {
  auto asset = [](std::string_view body, const char* type) {
    return [body, type](const httplib::Request&, httplib::Response& response) {
      serveAsset(response, body, type);
    };
  };
  server.Get("/", forLoopbackNames(asset(inspector_assets::kPage, "text/html; charset=utf-8")));
  server.Get("/inspector/page.js",
             forLoopbackNames(asset(inspector_assets::kScript, "text/javascript; charset=utf-8")));
  server.Get("/inspector/page.css",
             forLoopbackNames(asset(inspector_assets::kStyle, "text/css; charset=utf-8")));
  server.Get("/inspector/events",
             forLoopbackNames([this](const auto&, auto& response) { openStream(response); }));
  server.Get("/inspector/received.jsonl",
             forLoopbackNames([this](const auto&, auto& response) { sendReceived(response); }));
  server.Post("/inspector/registry", forLoopbackNames([this](const auto& request, auto& response) {
                sendAnswer(response,
                           isJsonPost(request) ? changeRegistry(request.body) : notJson());
              }));
  server.Post("/inspector/outage", forLoopbackNames([this](const auto& request, auto& response) {
                sendAnswer(response, isJsonPost(request) ? changeOutage(request.body) : notJson());
              }));
}

void Inspector::openStream(httplib::Response& response) {
  response.set_header("Cache-Control", "no-store");
  auto cursor = std::make_shared<Cursor>();
  response.set_chunked_content_provider(
      "text/event-stream",
      [this, cursor](std::size_t, httplib::DataSink& sink) { return stream(*cursor, sink); });
}

void Inspector::sendReceived(httplib::Response& response) const {
  std::string lines;
  for (const RecordedRequest& request : service_.received()) lines += request.toJsonLine() + "\n";
  response.set_header("Content-Disposition", "attachment; filename=\"received.jsonl\"");
  response.set_content(lines, "application/x-ndjson");
}

void Inspector::requestAnswered(const RecordedRequest& request, int status) {
  {
    platform::MutexLock lock(mutex_);
    entries_.push_back(std::make_shared<Entry>(firstEntry_ + entries_.size(), request, status));
    if (entries_.size() > kKeptEntries) {
      entries_.pop_front();
      ++firstEntry_;
    }
    // A tracking request may have used up part of the outage.
    if (request.path.starts_with("/tracker")) ++stateVersion_;
  }
  changed_.notify_all();
}

void Inspector::shutdown() {
  {
    platform::MutexLock lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
}

void Inspector::stateChanged() {
  {
    platform::MutexLock lock(mutex_);
    ++stateVersion_;
  }
  changed_.notify_all();
}

// One step of an event stream: waits for news (or the heartbeat), writes it; false ends it.
bool Inspector::stream(Cursor& cursor, httplib::DataSink& sink) {
  std::vector<std::shared_ptr<Entry>> news;
  bool stateToSend = false;
  {
    platform::MutexLock lock(mutex_);
    auto hasNews = [&]() ZELNORA_REQUIRES(mutex_) {
      return stopping_ || cursor.stateSeen != stateVersion_ ||
             cursor.nextEntry < firstEntry_ + entries_.size();
    };
    const auto deadline = std::chrono::steady_clock::now() + kHeartbeat;
    while (!hasNews() && changed_.wait_until(mutex_, deadline) != std::cv_status::timeout) {
    }
    if (stopping_) return false;
    cursor.nextEntry = std::max(cursor.nextEntry, firstEntry_);
    for (; cursor.nextEntry < firstEntry_ + entries_.size(); ++cursor.nextEntry) {
      news.push_back(entries_[cursor.nextEntry - firstEntry_]);
    }
    stateToSend = cursor.stateSeen != stateVersion_;
    cursor.stateSeen = stateVersion_;
  }
  std::string chunk;
  for (const std::shared_ptr<Entry>& entry : news) chunk += sseEvent("request", entry->json());
  if (stateToSend) chunk += sseEvent("state", stateJson());
  if (chunk.empty()) chunk = ": still here\n\n";
  return sink.write(chunk.data(), chunk.size());
}

}  // namespace zelnora_tools

// The reference service's live inspector: a page at "/" that shows every request the service
// receives as it arrives, flags what is off in each report (ReportCheck.h), and changes the key
// registry and the staged outage while the service runs. Served by the HTTP server only (not in
// a fault mode); its own requests are neither recorded nor printed.
//
//   GET  /                            the page; /inspector/page.js and /inspector/page.css
//   GET  /inspector/events            server-sent events: "request" for each received request
//                                     (those before the connection first, oldest first) and
//                                     "state" ({"version":7,"keys":{..},"outage":{..}}) on
//                                     connection and on every change
//   GET  /inspector/received.jsonl    every request received, as the JSON lines of the log
//   POST /inspector/registry          {"key":"demo-key","killSwitch":true,"status":200}
//   POST /inspector/outage            {"failNext":2,"downForSeconds":0,"failStatus":503,
//                                      "retryAfterSeconds":3600}
// A POST answers 200 with the new state, or 400 {"error":"..."} and changes nothing; one without
// Content-Type: application/json answers 415. Every route answers 403 unless its Host names this
// machine (127.0.0.1, localhost, [::1]), so that a page that rebinds its own name cannot use it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "platform/internal/ThreadAnnotations.h"

namespace httplib {
class Server;
class DataSink;
struct Response;
}  // namespace httplib

namespace zelnora_tools {

class ReferenceService;
struct RecordedRequest;
struct ServiceAnswer;

// A request as the page receives it: its record, when it was answered (milliseconds since 1970),
// its answer's status, and for a report its events and the problems found in it.
std::string inspectorEntryJson(std::size_t sequence, long long answeredAt,
                               const RecordedRequest& request, int status);

class Inspector {
 public:
  explicit Inspector(ReferenceService& service);

  // Adds the routes above; call before the service's catch-all routes.
  void install(httplib::Server& server);
  // Shows one answered request on every open page. Any thread.
  void requestAnswered(const RecordedRequest& request, int status);
  // Ends every event stream, so that the server can stop.
  void shutdown();

 private:
  struct Cursor {
    std::size_t nextEntry = 0;
    std::uint64_t stateSeen = 0;
  };
  // One answered request, rendered for the page (the report check included) the first time a
  // page asks for it, on that page's thread: the answer never waits for the inspector.
  class Entry;

  void openStream(httplib::Response& response);
  bool stream(Cursor& cursor, httplib::DataSink& sink);
  void sendReceived(httplib::Response& response) const;
  std::string stateJson() const;
  ServiceAnswer changeRegistry(std::string_view body);
  ServiceAnswer changeOutage(std::string_view body);
  void stateChanged();

  ReferenceService& service_;
  mutable platform::Mutex mutex_;
  std::condition_variable_any changed_;
  std::deque<std::shared_ptr<Entry>> entries_ ZELNORA_GUARDED_BY(mutex_);  // newest last
  std::size_t firstEntry_ ZELNORA_GUARDED_BY(mutex_) = 0;  // entries_.front()'s number
  std::uint64_t stateVersion_ ZELNORA_GUARDED_BY(mutex_) = 1;
  bool stopping_ ZELNORA_GUARDED_BY(mutex_) = false;
};

}  // namespace zelnora_tools

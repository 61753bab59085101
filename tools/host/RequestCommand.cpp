// request: one APIRequest sent through the kit's API service, its outcome printed.
#include "HostFormat.h"
#include "HostSession.h"
#include "platform/Console.h"
#include "zelnora_core/APIService.h"

namespace zelnora_host {
namespace {

using zelnora_core::APIRequest;

std::optional<std::map<std::string, zelnora_core::ParameterValue>> parameterValues(
    const std::optional<std::map<std::string, std::string>>& parameters) {
  if (!parameters) return std::nullopt;
  std::map<std::string, zelnora_core::ParameterValue> values;
  for (const auto& [name, text] : *parameters) values.emplace(name, text);
  return values;
}

void printOutcome(const std::optional<platform::Bytes>& body,
                  const std::optional<platform::HTTPURLResponse>& response,
                  const std::optional<platform::Error>& error) {
  if (error) {
    platform::printLine(errorLine(*error));
  } else if (response) {
    platform::printLine(responseLine(response->statusCode, body));
  } else {
    platform::printLine("host: error the exchange ended without a response");
  }
}

std::optional<std::string> request(HostSession&, const Words& words) {
  return runParsed(parseRequest(words), [](const RequestArguments& arguments) {
    std::optional<platform::Bytes> body;
    if (arguments.body) body = platform::toBytes(*arguments.body);
    APIRequest request(arguments.endpoint, arguments.method, arguments.path,
                       parameterValues(arguments.parameters), std::nullopt, std::move(body));
    zelnora_core::APIService::shared().request(request, printOutcome);
  });
}

}  // namespace

void addRequestCommand(CommandTable& table) {
  table["request"] = {request, "ENDPOINT METHOD [path.K=V ...] [param.K=V ...] [body=TEXT]",
                      "any API request, e.g. \"request getCampaign get path.zoneId=42\"; prints "
                      "\"host: response ...\" or \"host: error ...\"\n      " +
                          requestCaseNames()};
}

}  // namespace zelnora_host

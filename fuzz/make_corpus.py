#!/usr/bin/env python3
"""Writes the structured seed inputs of fuzz/corpus (run by hand when a target's input layout
changes; scripts/fuzz never writes here).

The request_url, dump and identifier targets read their input through libFuzzer's
FuzzedDataProvider: strings come from the front (a backslash escapes a backslash, a backslash
followed by any other byte ends the string), integers and Booleans from the back, most significant
byte first. `Seed` lays out bytes in that order so each seed is a realistic exchange. The plist
seeds are real property lists written with plistlib (XML and binary); the records seeds are plain
JSON files kept as they are.
"""
import datetime
import os
import plistlib
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


class Seed:
    def __init__(self):
        self.front = bytearray()
        self.back = bytearray()  # in consumption order; stored reversed at the end of the file

    def string(self, text):
        data = text.encode() if isinstance(text, str) else text
        self.front += data.replace(b"\\", b"\\\\") + b"\\ "
        return self

    def byte(self, value):
        self.back.append(value & 0xFF)
        return self

    def boolean(self, flag):
        return self.byte(1 if flag else 0)

    def integer(self, value, width, signed=True):
        # ConsumeIntegral<T> returns min(T) + raw for a signed T.
        raw = value + (1 << (8 * width - 1)) if signed else value
        self.back += (raw & ((1 << (8 * width)) - 1)).to_bytes(width, "big")
        return self

    def bytes(self):
        return bytes(self.front) + bytes(reversed(self.back))


def write(target, name, data):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as out:
        out.write(data)


# ---- request_url: endpoint, method, placeholders, parameters ----

ENDPOINTS = ["getCampaign", "sendTracking", "sendAppTracking", "sendPollAnswers", "registerInVqx",
             "unregisterInVqx", "vqxCallback"]
METHODS = ["GET", "POST", "PUT", "DELETE"]


def request(endpoint, method, placeholders=None, parameters=None):
    seed = Seed().byte(ENDPOINTS.index(endpoint)).byte(METHODS.index(method))
    seed.boolean(placeholders is not None)
    if placeholders is not None:
        seed.byte(len(placeholders))
        for key, value in placeholders:
            seed.boolean(key == "zoneId")
            if key != "zoneId":
                seed.string(key)
            seed.string(value)
    seed.boolean(parameters is not None)
    if parameters is not None:
        seed.byte(len(parameters))
        for name, value in parameters:
            seed.string(name)
            if isinstance(value, bool):
                seed.byte(2).boolean(value)
            elif isinstance(value, int):
                seed.byte(1).integer(value, 8)
            elif isinstance(value, float):
                seed.byte(3).integer(struct.unpack(">Q", struct.pack(">d", value))[0], 8,
                                   signed=False)
            else:
                seed.byte(0).string(value)
    return seed.bytes()


write("request_url", "campaign_zone", request("getCampaign", "GET", [("zoneId", "zone-17")]))
write("request_url", "campaign_zone_query",
      request("getCampaign", "GET", [("zoneId", "z 1/é?x#y")],
              [("userId", "u+1&2=3"), ("limit", 20), ("debug", True), ("ratio", 0.1)]))
write("request_url", "tracking_post", request("sendAppTracking", "POST"))
write("request_url", "register_params",
      request("registerInVqx", "PUT", None, [("token", "ab:cd/ef"), ("platform", "ios")]))
write("request_url", "callback_empty_params", request("vqxCallback", "DELETE", {}, []))
write("request_url", "quiz_double",
      request("sendPollAnswers", "POST", [("other", "{zoneId}")], [("score", 1e16), ("n", -5)]))

# ---- dump: URL text, method, header fields, body; then a response, body and error ----


def exchange(url, method, fields, body, response=None, response_body=None, error=None):
    seed = Seed().string(url)
    seed.byte(METHODS.index(method)).byte(len(fields))
    for name, value in fields:
        seed.string(name).string(value)
    seed.boolean(body is not None)
    if body is not None:
        seed.string(body)
    seed.boolean(response is not None)
    if response is not None:
        status, response_fields = response
        seed.integer(status, 4).byte(len(response_fields))
        for name, value in response_fields:
            seed.string(name).string(value)
    seed.boolean(response_body is not None)
    if response_body is not None:
        seed.string(response_body)
    seed.boolean(error is not None)
    if error is not None:
        domain, code, description = error
        seed.string(domain).integer(code, 8).boolean(description is not None)
        if description is not None:
            seed.string(description)
    return seed.bytes()


report = '{"events":[{"event":"open","t":"1700000000"}]}'
write("dump", "report_post",
      exchange("https://api.zelnora.example/tracker/app", "POST",
               [("Content-Type", "application/json"), ("Accept", "*/*"), ("channel", "c-7")],
               report, (200, [("Content-Type", "application/json")]), "{}"))
write("dump", "campaign_get_404",
      exchange("https://api.zelnora.example/campaign/v3/zone%201?user=a%26b", "GET",
               [("X-Custom", "v\r\nInjected: 1")], None, (404, []), "not found"))
write("dump", "transport_error",
      exchange("http://127.0.0.1:9/v2/register", "PUT", [], "", None, None,
               ("NSURLErrorDomain", -1004, "Could not connect to the server.")))
write("dump", "status_error",
      exchange("http://[::1]:8080/v1/unregister", "DELETE", [("Bad Name", "x")], None,
               (500, [("Server", "ref")]), None, ("StatusCode", 500, None)))

# ---- identifier: identifier, optional SIMULATOR_MODEL_IDENTIFIER, a second value, levels ----

PICKS = ["x86_64", "arm64", "i386", "iPhone10,3", "iPhone15,3", "iPad13,8", "iPod9,1",
         "AudioAccessory1,1", "iPhone X", "Simulator (iPhone 8)", "iOS", ""]


def identifier_part(seed, text):
    seed.boolean(False).string(text)


def identifiers(first, variable, other, other_unknown, levels):
    seed = Seed()
    identifier_part(seed, first)
    seed.boolean(variable is not None)
    if variable is not None:
        identifier_part(seed, variable)
    identifier_part(seed, other)
    seed.boolean(other_unknown).byte(levels)
    return seed.bytes()


write("identifier", "phone", identifiers("iPhone15,3", None, "iPhone 15 Pro Max", True, 0))
write("identifier", "simulator_pad", identifiers("arm64", "iPad13,8", "iPad13,8", False, 1))
write("identifier", "simulator_unset", identifiers("x86_64", None, "iOS", True, 2))
write("identifier", "simulator_of_simulator", identifiers("i386", "x86_64", "x86_64", True, 1))
write("identifier", "unknown_spelling_simulator",
      identifiers("Simulator (iPhone X)", None, "iPhone10,3", False, 3))
write("identifier", "unknown", identifiers("iPhone99,9", None, "", False, 0))

# ---- plist: a host bundle's configuration and a suite value, XML and binary ----

host_config = {"INIT_CONFIG": "https://api.zelnora.example/config/{key}",
               "API_BASE_URL": "https://api.zelnora.example",
               "VQX_BASE_URL": "https://push.zelnora.example"}
write("plist", "host_config.xml", plistlib.dumps(host_config, fmt=plistlib.FMT_XML))
write("plist", "host_config.bplist", plistlib.dumps(host_config, fmt=plistlib.FMT_BINARY))
mixed = {"headers": {"X-Tenant": "acme", "Accept": "*/*"}, "data": b"\x00\x01\xffbytes",
         "numbers": [0, -1, 2**40, 3.5, True, False],
         "when": datetime.datetime(2024, 5, 1, 12, 30, 15),
         "nested": [[{"k": ["v"]}]], "text": "iPhone X\u0280"}
write("plist", "mixed.bplist", plistlib.dumps(mixed, fmt=plistlib.FMT_BINARY))
write("plist", "mixed.xml", plistlib.dumps(mixed, fmt=plistlib.FMT_XML))
write("plist", "info.xml", plistlib.dumps(
    {"CFBundleIdentifier": "com.example.host", "CFBundleShortVersionString": "2.3"},
    fmt=plistlib.FMT_XML))

// The configuration files of the peers, as text (pure): nginx in front of an origin (HTTP/1.1 or
// HTTPS with HTTP/2, TLS versions, a pre-compressed configuration), HAProxy terminating HTTPS+h2
// with a short idle time-out, and squid as a CONNECT proxy with a private hosts file.
#pragma once

#include <string>

namespace zelnora_peers {

struct NginxSettings {
  int port = 0;
  int originPort = 0;  // plain HTTP on 127.0.0.1
  bool tls = false;    // HTTPS; with HTTP/2 offered through ALPN unless `tlsProtocols` is set
  std::string certificateFile, keyFile;
  std::string tlsProtocols;  // e.g. "TLSv1.1": that version only, at OpenSSL security level 0
  int keepaliveRequests = 1000;
  std::string compressedConfigRoot;  // non-empty: /config/* served from ROOT/config/*.gz, always
};

struct HaproxySettings {
  int port = 0;
  int originPort = 0;
  std::string combinedCertificateFile;
  int idleTimeoutMilliseconds = 1000;  // timeout client and http-keep-alive
};

struct SquidSettings {
  int port = 0;
  std::string hostsFile;  // the only name resolution the proxy uses for the kit's host
};

// nginx.conf for `nginx -p FOLDER -c FOLDER/nginx.conf -g 'daemon off;'` (paths relative to
// FOLDER).
std::string nginxConfig(const NginxSettings& settings);
std::string haproxyConfig(const HaproxySettings& settings);
std::string squidConfig(const SquidSettings& settings);
// An OpenSSL configuration that lets TLS 1.0 and 1.1 through (security level 0): whatever refuses
// them under it does so on its own.
std::string permissiveOpensslConfig();

}  // namespace zelnora_peers

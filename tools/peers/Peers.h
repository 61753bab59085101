// One arrangement of real peers in front of an origin (the reference service on a loopback port),
// as the kit meets them on real networks, started in a private folder and stopped with the value:
//   nginx-http1   nginx over plain HTTP/1.1
//   nginx-h2      nginx over HTTPS, HTTP/2 through ALPN
//   haproxy-h2    HAProxy over HTTPS+h2 with a short idle time-out (default 1 s)
//   squid         nginx-h2 reachable only through squid (CONNECT) under a name only squid resolves
//   gzip-config   nginx-h2 serving the configuration pre-compressed (Content-Encoding: gzip)
//   tls1.1 tls1.2 nginx over HTTPS accepting that one TLS version; the kit runs with an OpenSSL
//                 configuration that would allow older versions
// nginx keeps at most `keepaliveRequests` requests on one connection, then retires it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "PeerCertificates.h"
#include "PeerProcess.h"

namespace zelnora_peers {

enum class PeerKind { nginxHttp1, nginxHttp2, haproxyHttp2, squid, gzipConfig, tls11, tls12 };

std::optional<PeerKind> peerKindNamed(std::string_view name);
std::string_view nameOf(PeerKind kind);

// The host name the squid arrangement serves the kit under; nothing but squid resolves it.
inline constexpr std::string_view kProxiedHostName = "api.zelnora.test";

struct PeerOptions {
  PeerKind kind = PeerKind::nginxHttp2;
  int originPort = 0;
  int keepaliveRequests = 1000;
  int idleTimeoutMilliseconds = 1000;  // HAProxy's
  // gzip-config: the body nginx serves, compressed, for /config/<key>.
  std::string configKey, configBody;
};

// Environment variables for the kit's process; an absent value removes the variable.
using KitEnvironment = std::map<std::string, std::optional<std::string>>;

class PeerSet {
 public:
  PeerSet();   // makes its folder (readable by the servers' unprivileged users)
  ~PeerSet();  // stops the servers, removes the folder
  PeerSet(const PeerSet&) = delete;
  PeerSet& operator=(const PeerSet&) = delete;

  // Starts the arrangement; empty on success, otherwise what went wrong (a missing program is
  // named with its Debian package).
  std::string start(const PeerOptions& options);

  // Where the kit's bundle points (INIT_CONFIG and API_BASE_URL start with it).
  const std::string& baseUrl() const { return baseUrl_; }
  // For the kit: the test CA as its only trust (SSL_CERT_FILE), the proxy variables (set only
  // for squid), and the permissive OpenSSL configuration for the TLS-version arrangements.
  const KitEnvironment& kitEnvironment() const { return environment_; }
  const std::string& folder() const { return folder_; }

 private:
  std::string startNginx(const PeerOptions& options, bool tls, std::string tlsProtocols = "");
  std::string startHaproxy(const PeerOptions& options);
  std::string startSquid(int httpsPort);
  std::string startProgram(PeerProcess& process, const std::string& program,
                           std::vector<std::string> arguments, int port);
  bool writeCompressedConfig(const PeerOptions& options);

  std::string folder_;
  std::optional<PeerCertificates> certificates_;
  std::string baseUrl_;
  KitEnvironment environment_;
  PeerProcess server_;
  PeerProcess proxy_;
  std::string squidName_;
};

}  // namespace zelnora_peers

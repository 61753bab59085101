#include "PeerConfigs.h"

namespace zelnora_peers {
namespace {

std::string loopbackHostPort(int port) { return "127.0.0.1:" + std::to_string(port); }

std::string nginxTls(const NginxSettings& s) {
  std::string text = "    ssl_certificate " + s.certificateFile + ";\n    ssl_certificate_key " +
                     s.keyFile + ";\n";
  if (!s.tlsProtocols.empty()) {
    text += "    ssl_protocols " + s.tlsProtocols + ";\n    ssl_ciphers DEFAULT:@SECLEVEL=0;\n";
  }
  return text;
}

std::string nginxListen(const NginxSettings& s) {
  std::string words = loopbackHostPort(s.port);
  if (s.tls) words += s.tlsProtocols.empty() ? " ssl http2" : " ssl";
  return "    listen " + words + ";\n";
}

std::string nginxCompressedConfig(const NginxSettings& s) {
  if (s.compressedConfigRoot.empty()) return "";
  return "    location /config/ {\n      root " + s.compressedConfigRoot +
         ";\n      gzip_static always;\n      default_type application/json;\n    }\n";
}

}  // namespace

std::string nginxConfig(const NginxSettings& s) {
  std::string text =
      "worker_processes 1;\npid nginx.pid;\nevents { worker_connections 1024; }\nhttp {\n"
      "  access_log off;\n"
      "  client_body_temp_path tmp/body;\n  proxy_temp_path tmp/proxy;\n"
      "  fastcgi_temp_path tmp/fastcgi;\n  uwsgi_temp_path tmp/uwsgi;\n  scgi_temp_path tmp/scgi;\n"
      "  keepalive_requests " +
      std::to_string(s.keepaliveRequests) + ";\n  server {\n" + nginxListen(s);
  if (s.tls) text += nginxTls(s);
  text += nginxCompressedConfig(s);
  return text + "    location / { proxy_pass http://" + loopbackHostPort(s.originPort) +
         "; }\n  }\n}\n";
}

std::string haproxyConfig(const HaproxySettings& s) {
  const std::string idle = std::to_string(s.idleTimeoutMilliseconds) + "ms";
  return "defaults\n  mode http\n  timeout connect 5s\n  timeout server 30s\n"
         "  timeout client " +
         idle + "\n  timeout http-keep-alive " + idle +
         "\n"
         "frontend api\n  bind " +
         loopbackHostPort(s.port) + " ssl crt " + s.combinedCertificateFile +
         " alpn h2,http/1.1\n  default_backend origin\n"
         "backend origin\n  http-reuse never\n  server reference " +
         loopbackHostPort(s.originPort) + "\n";
}

std::string squidConfig(const SquidSettings& s) {
  return "http_port " + loopbackHostPort(s.port) + "\nhttp_access allow all\nhosts_file " +
         s.hostsFile +
         "\ndns_nameservers 127.0.0.1\npid_filename none\naccess_log none\ncache_log /dev/null\n"
         "cache deny all\npinger_enable off\nshutdown_lifetime 0 seconds\n";
}

std::string permissiveOpensslConfig() {
  return "openssl_conf = init\n[init]\nssl_conf = ssl\n[ssl]\nsystem_default = defaults\n"
         "[defaults]\nMinProtocol = TLSv1\nCipherString = DEFAULT:@SECLEVEL=0\n";
}

}  // namespace zelnora_peers

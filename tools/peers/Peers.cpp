#include "Peers.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "PeerConfigs.h"

namespace zelnora_peers {
namespace {

struct KindName {
  PeerKind kind;
  std::string_view name;
};
constexpr std::array<KindName, 7> kKindNames = {{{PeerKind::nginxHttp1, "nginx-http1"},
                                                 {PeerKind::nginxHttp2, "nginx-h2"},
                                                 {PeerKind::haproxyHttp2, "haproxy-h2"},
                                                 {PeerKind::squid, "squid"},
                                                 {PeerKind::gzipConfig, "gzip-config"},
                                                 {PeerKind::tls11, "tls1.1"},
                                                 {PeerKind::tls12, "tls1.2"}}};

const std::map<std::string, std::string> kPackageOf = {{"nginx", "nginx"},
                                                       {"haproxy", "haproxy"},
                                                       {"squid", "squid"},
                                                       {"gzip", "gzip"},
                                                       {"openssl", "openssl"}};

const std::vector<std::string> kProxyVariables = {
    "http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"};

std::string tailOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  const std::string all = text.str();
  return all.size() > 2000 ? all.substr(all.size() - 2000) : all;
}

std::string installHint(const std::string& program) {
  return "install the Debian package " + kPackageOf.at(program) + " (scripts/install-peers)";
}

void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

}  // namespace

std::optional<PeerKind> peerKindNamed(std::string_view name) {
  for (const KindName& row : kKindNames) {
    if (row.name == name) return row.kind;
  }
  return std::nullopt;
}

std::string_view nameOf(PeerKind kind) {
  for (const KindName& row : kKindNames) {
    if (row.kind == kind) return row.name;
  }
  return "";
}

PeerSet::PeerSet() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zelnora-peers-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) return;
  folder_ = pattern;
  // squid and nginx's workers drop to their own users when started as root: let them read here
  ::chmod(folder_.c_str(), 0755);
  std::filesystem::create_directories(folder_ + "/tmp");
  environment_["SSL_CERT_DIR"] = std::nullopt;
  for (const std::string& variable : kProxyVariables) environment_[variable] = std::nullopt;
}

PeerSet::~PeerSet() {
  proxy_.stop();
  server_.stop();
  if (folder_.empty()) return;
  std::error_code ignored;
  // squid removes its shared-memory segments when it ends normally; not when it had to be killed
  if (!squidName_.empty()) {
    for (const char* segment : {"metadata", "queues", "readers"}) {
      std::filesystem::remove("/dev/shm/" + squidName_ + "-cf__" + segment + ".shm", ignored);
    }
  }
  std::filesystem::remove_all(folder_, ignored);
}

std::string PeerSet::start(const PeerOptions& options) {
  if (folder_.empty()) return "cannot make a private folder for the peers";
  if (options.kind != PeerKind::nginxHttp1) {
    if (!findProgram("openssl")) return "openssl is not installed: " + installHint("openssl");
    certificates_ = makePeerCertificates(folder_, std::string(kProxiedHostName));
    if (!certificates_)
      return "cannot make test certificates with openssl: " + tailOf(folder_ + "/openssl.log");
    environment_["SSL_CERT_FILE"] = certificates_->authorityFile;
  }
  switch (options.kind) {
    case PeerKind::nginxHttp1: return startNginx(options, false);
    case PeerKind::nginxHttp2: return startNginx(options, true);
    case PeerKind::haproxyHttp2: return startHaproxy(options);
    case PeerKind::gzipConfig:
      if (!writeCompressedConfig(options))
        return "cannot write the compressed configuration (gzip)";
      return startNginx(options, true);
    case PeerKind::tls11:
    case PeerKind::tls12:
      write(folder_ + "/openssl.cnf", permissiveOpensslConfig());
      environment_["OPENSSL_CONF"] = folder_ + "/openssl.cnf";
      return startNginx(options, true, options.kind == PeerKind::tls11 ? "TLSv1.1" : "TLSv1.2");
    case PeerKind::squid: {
      std::string failure = startNginx(options, true);
      const int httpsPort = std::stoi(baseUrl_.substr(baseUrl_.rfind(':') + 1));
      return failure.empty() ? startSquid(httpsPort) : failure;
    }
  }
  return "unknown arrangement";
}

std::string PeerSet::startNginx(const PeerOptions& options, bool tls, std::string tlsProtocols) {
  NginxSettings settings;
  settings.port = freeLoopbackPort();
  settings.originPort = options.originPort;
  settings.tls = tls;
  if (tls) {
    settings.certificateFile = certificates_->certificateFile;
    settings.keyFile = certificates_->keyFile;
  }
  settings.tlsProtocols = std::move(tlsProtocols);
  settings.keepaliveRequests = options.keepaliveRequests;
  if (options.kind == PeerKind::gzipConfig) settings.compressedConfigRoot = folder_ + "/www";
  write(folder_ + "/nginx.conf", nginxConfig(settings));
  baseUrl_ = (tls ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(settings.port);
  return startProgram(
      server_, "nginx",
      {"-e", "stderr", "-p", folder_, "-c", folder_ + "/nginx.conf", "-g", "daemon off;"},
      settings.port);
}

std::string PeerSet::startHaproxy(const PeerOptions& options) {
  const HaproxySettings settings{freeLoopbackPort(), options.originPort,
                                 certificates_->combinedFile, options.idleTimeoutMilliseconds};
  write(folder_ + "/haproxy.cfg", haproxyConfig(settings));
  baseUrl_ = "https://127.0.0.1:" + std::to_string(settings.port);
  return startProgram(server_, "haproxy", {"-f", folder_ + "/haproxy.cfg", "-db"}, settings.port);
}

std::string PeerSet::startSquid(int httpsPort) {
  const SquidSettings settings{freeLoopbackPort(), folder_ + "/hosts"};
  write(settings.hostsFile, "127.0.0.1 " + std::string(kProxiedHostName) + "\n");
  write(folder_ + "/squid.conf", squidConfig(settings));
  squidName_ =
      "zelnorapeer" + std::to_string(settings.port);  // squid takes letters and digits only
  baseUrl_ = "https://" + std::string(kProxiedHostName) + ":" + std::to_string(httpsPort);
  environment_["https_proxy"] = "http://127.0.0.1:" + std::to_string(settings.port);
  return startProgram(proxy_, "squid", {"-N", "-n", squidName_, "-f", folder_ + "/squid.conf"},
                      settings.port);
}

std::string PeerSet::startProgram(PeerProcess& process, const std::string& program,
                                  std::vector<std::string> arguments, int port) {
  const std::optional<std::string> path = findProgram(program);
  if (!path) {
    return program + " is not installed: " + installHint(program);
  }
  arguments.insert(arguments.begin(), *path);
  const std::string log = folder_ + "/" + program + ".log";
  if (process.start(arguments, log, port)) return "";
  return program + " did not listen on 127.0.0.1:" + std::to_string(port) + "; its output:\n" +
         tailOf(log);
}

bool PeerSet::writeCompressedConfig(const PeerOptions& options) {
  const std::string plain = folder_ + "/www/config/" + options.configKey;
  std::filesystem::create_directories(folder_ + "/www/config");
  write(plain, options.configBody);
  const std::optional<std::string> gzip = findProgram("gzip");
  return gzip && runToCompletion({*gzip, "-n", "-9", plain}, folder_ + "/gzip.log");
}

}  // namespace zelnora_peers

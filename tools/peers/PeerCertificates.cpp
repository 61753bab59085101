#include "PeerCertificates.h"

#include <fstream>
#include <vector>

#include "PeerProcess.h"

namespace zelnora_peers {
namespace {

const std::vector<std::string> kNewKey = {
    "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2"};

std::vector<std::string> request(const std::string& openssl, std::vector<std::string> words) {
  std::vector<std::string> command = {openssl, "req", "-x509"};
  command.insert(command.end(), kNewKey.begin(), kNewKey.end());
  command.insert(command.end(), words.begin(), words.end());
  return command;
}

}  // namespace

std::optional<PeerCertificates> makePeerCertificates(const std::string& folder,
                                                     const std::string& hostName) {
  const std::optional<std::string> openssl = findProgram("openssl");
  if (!openssl) return std::nullopt;
  const PeerCertificates made{folder + "/ca.pem", folder + "/server.pem", folder + "/server.key",
                              folder + "/server-and-key.pem"};
  const std::string log = folder + "/openssl.log";
  const bool authority =
      runToCompletion(request(*openssl, {"-keyout", folder + "/ca.key", "-out", made.authorityFile,
                                         "-subj", "/CN=zelnora peers test CA", "-addext",
                                         "basicConstraints=critical,CA:TRUE", "-addext",
                                         "keyUsage=critical,keyCertSign,cRLSign"}),
                      log);
  const bool server =
      authority &&
      runToCompletion(
          request(*openssl,
                  {"-CA", made.authorityFile, "-CAkey", folder + "/ca.key", "-keyout", made.keyFile,
                   "-out", made.certificateFile, "-subj", "/CN=" + hostName, "-addext",
                   "subjectAltName=IP:127.0.0.1,DNS:" + hostName, "-addext",
                   "basicConstraints=CA:FALSE", "-addext", "extendedKeyUsage=serverAuth"}),
          log);
  if (!server) return std::nullopt;
  std::ofstream(made.combinedFile)
      << std::ifstream(made.certificateFile).rdbuf() << std::ifstream(made.keyFile).rdbuf();
  return made;
}

}  // namespace zelnora_peers

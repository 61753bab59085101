// A throw-away certificate authority and one server certificate it signed, made with the openssl
// tool in a given folder: what the peers present over TLS, and what the kit under test is told
// to trust (SSL_CERT_FILE) for one run, leaving the machine's trust store alone.
#pragma once

#include <optional>
#include <string>

namespace zelnora_peers {

struct PeerCertificates {
  std::string authorityFile;  // the CA certificate (PEM): the trust file for the kit
  std::string certificateFile;
  std::string keyFile;
  std::string combinedFile;  // certificate then key, as HAProxy's `crt` takes it
};

// Makes the CA and a server certificate valid for 127.0.0.1 and `hostName` (subjectAltName) in
// `folder`; absent when the openssl tool is missing or fails (its output is in folder/openssl.log).
std::optional<PeerCertificates> makePeerCertificates(const std::string& folder,
                                                     const std::string& hostName);

}  // namespace zelnora_peers

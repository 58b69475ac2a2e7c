// The certificate that secure connections show: found in the certificate folder or made there.
//
// A pair that this machine made itself is renewed before it ends; a pair of the operator's is used
// as it is and never written to. Refresh belongs to one controlling thread, the rest to any.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <optional>
#include <string>

#include "host/certificate.h"
#include "os/mutex.h"

namespace host {

class TlsIdentity {
 public:
  /// Looks at the pair, makes or renews it where that is the service's to do, and loads it for the
  /// connections to come. `warning` tells what the operator should look at. Returns false, with the
  /// reason in `why`, when there is no usable pair; what was loaded before stays in use.
  bool Refresh(std::string* why, std::string* warning);

  /// Null before the first success.
  std::shared_ptr<boost::asio::ssl::context> Context() const;
  std::optional<CertificateFacts> Facts() const;
  /// The file of the certificate in use.
  std::string File() const;

 private:
  bool Load(const std::string& file, const KeyPair& pair, std::string* why);

  mutable Mutex mutex_;
  std::shared_ptr<boost::asio::ssl::context> context_ QV_GUARDED_BY(mutex_);
  std::optional<CertificateFacts> facts_ QV_GUARDED_BY(mutex_);
  std::string file_ QV_GUARDED_BY(mutex_);
};

}  // namespace host

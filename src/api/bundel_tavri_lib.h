#pragma once

#include "api/xyz_api.h"
#include "network/kl_bundel.h"

// The object behind a job handle: a network with its run and the caller's two callbacks. The
// handle is the pointer to it.
class BundelTavriLib final : public vermo::KLBundel {
 public:
  using KLBundel::KLBundel;

  void SetProgressCallback(XYZ_ProgressCallback function, void* userData) noexcept {
    fProgressCallback = function;
    fProgressUserData = userData;
  }
  void SetProtocolCallback(XYZ_ProtocolCallback function, void* userData) noexcept {
    fProtocolCallback = function;
    fProtocolUserData = userData;
  }

  void OnProtocolText(const char* text) override { ForwardProtocolText(text); }
  [[nodiscard]] bool IsListening() const override { return fProtocolCallback != nullptr; }
  // Hands the text to the caller's protocol function, if there is one.
  virtual void ForwardProtocolText(const char* text);

 protected:
  // Calls the progress function first; when it cancels, the iteration is missing in the protocol.
  bool OnIteration(vermo::IterationInfo& info) override;

 private:
  XYZ_ProgressCallback fProgressCallback = nullptr;
  XYZ_ProtocolCallback fProtocolCallback = nullptr;
  void* fProgressUserData = nullptr;
  void* fProtocolUserData = nullptr;
};

// The job behind a handle, which must not be null.
inline BundelTavriLib& JobOf(void* handle) noexcept {
  return *static_cast<BundelTavriLib*>(handle);
}

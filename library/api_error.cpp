#include "library/api_error.h"

#include <new>
#include <stdexcept>

#include "library/base/command_error.h"
#include "library/session/camera_session.h"

namespace lidcam::api {
namespace {

std::string& TextOfThread() {
  thread_local std::string text;
  return text;
}

lidcam_status StatusOf(app::Failure kind) {
  switch (kind) {
    case app::Failure::NotFound:
      return LIDCAM_ERROR_NOT_FOUND;
    case app::Failure::InUse:
      return LIDCAM_ERROR_IN_USE;
    case app::Failure::Unplugged:
      return LIDCAM_ERROR_UNPLUGGED;
    case app::Failure::NoPermission:
      return LIDCAM_ERROR_NO_PERMISSION;
    case app::Failure::Other:
      break;
  }
  return LIDCAM_ERROR_FAILED;
}

}  // namespace

lidcam_status Fail(lidcam_status status, const std::string& text) noexcept {
  try {
    TextOfThread() = text;
  } catch (const std::bad_alloc&) {
    TextOfThread().clear();
  }
  return status;
}

lidcam_status FailForNull(const char* argument) noexcept {
  return Fail(LIDCAM_ERROR_INVALID_ARGUMENT, std::string(argument) + " is null");
}

lidcam_status Guard(const std::function<lidcam_status()>& body) noexcept {
  try {
    return body();
  } catch (const app::CommandError& error) {
    return Fail(StatusOf(error.Kind()), error.what());
  } catch (const app::UsageError& error) {
    return Fail(LIDCAM_ERROR_INVALID_ARGUMENT, error.what());
  } catch (const app::SessionStateError& error) {
    return Fail(LIDCAM_ERROR_WRONG_STATE, error.what());
  } catch (const std::bad_alloc&) {
    return Fail(LIDCAM_ERROR_NO_MEMORY, "out of memory");
  } catch (const std::exception& error) {
    return Fail(LIDCAM_ERROR_FAILED, error.what());
  }
}

}  // namespace lidcam::api

const char* lidcam_error_text() {
  return lidcam::api::TextOfThread().c_str();
}

const char* lidcam_status_name(lidcam_status status) {
  switch (status) {
    case LIDCAM_OK:
      return "ok";
    case LIDCAM_TIMEOUT:
      return "timeout";
    case LIDCAM_END:
      return "end";
    case LIDCAM_ERROR_FAILED:
      return "failed";
    case LIDCAM_ERROR_INVALID_ARGUMENT:
      return "invalid argument";
    case LIDCAM_ERROR_NOT_FOUND:
      return "not found";
    case LIDCAM_ERROR_IN_USE:
      return "in use";
    case LIDCAM_ERROR_UNPLUGGED:
      return "unplugged";
    case LIDCAM_ERROR_NO_PERMISSION:
      return "no permission";
    case LIDCAM_ERROR_WRONG_STATE:
      return "wrong state";
    case LIDCAM_ERROR_NO_MEMORY:
      return "no memory";
  }
  return "unknown status";
}

const char* lidcam_version() {
  return LIDCAM_VERSION;
}

// A client of a driver with arbitrary answers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <functional>
#include <vector>

#include "platform/host/client/camera.h"
#include "platform/host/client/client_error.h"
#include "platform/host/nt/io/device_object.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::client {
namespace {

using Bytes = std::vector<std::byte>;

template <typename... Records>
Bytes BytesOf(const Records&... records) {
  Bytes bytes;
  const auto append = [&bytes](const auto& record) {
    const auto span = std::as_bytes(std::span(&record, 1));
    bytes.insert(bytes.end(), span.begin(), span.end());
  };
  (append(records), ...);
  return bytes;
}

/// Answers every property with the same bytes, cut to the buffer.
class AnsweringDriver {
 public:
  AnsweringDriver() {
    host::InitializeDriverObject(driver_);
    for (const int major : {IRP_MJ_CREATE, IRP_MJ_CLEANUP, IRP_MJ_CLOSE, IRP_MJ_DEVICE_CONTROL}) {
      driver_.MajorFunction[major] = Dispatch;
    }
    EXPECT_EQ(IoCreateDevice(&driver_, sizeof(AnsweringDriver*), nullptr, FILE_DEVICE_UNKNOWN, 0,
                             FALSE, &Device),
              STATUS_SUCCESS);
    *static_cast<AnsweringDriver**>(Device->DeviceExtension) = this;
    Device->Flags &= ~DO_DEVICE_INITIALIZING;
  }
  AnsweringDriver(const AnsweringDriver&) = delete;
  AnsweringDriver& operator=(const AnsweringDriver&) = delete;
  ~AnsweringDriver() noexcept(false) {
    if (std::uncaught_exceptions() == 0) IoDeleteDevice(Device);
  }

  PDEVICE_OBJECT Device = nullptr;
  Bytes Answer;
  Bytes LastRequest;
  std::size_t ToldLength = 0;  ///< other than the answer's, if not 0

 private:
  NTSTATUS AnswerControl(PIRP irp) {
    const auto& control = IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl;
    const auto* const request = static_cast<const std::byte*>(control.Type3InputBuffer);
    LastRequest.assign(request, request + control.InputBufferLength);
    irp->IoStatus.Information = ToldLength != 0 ? ToldLength : Answer.size();
    if (control.OutputBufferLength == 0) return STATUS_BUFFER_OVERFLOW;
    std::memcpy(irp->UserBuffer, Answer.data(),
                std::min<std::size_t>(Answer.size(), control.OutputBufferLength));
    return STATUS_SUCCESS;
  }

  static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP irp) {
    AnsweringDriver& self = **static_cast<AnsweringDriver**>(device->DeviceExtension);
    irp->IoStatus.Information = 0;
    const bool isControl =
        IoGetCurrentIrpStackLocation(irp)->MajorFunction == IRP_MJ_DEVICE_CONTROL;
    const NTSTATUS status = isControl ? self.AnswerControl(irp) : STATUS_SUCCESS;
    irp->IoStatus.Status = status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }

  DRIVER_OBJECT driver_{};
};

void WithDriver(const std::function<void(AnsweringDriver&, const Camera&)>& test) {
  host::Simulate({}, [&] {
    AnsweringDriver driver;
    const Camera camera = Camera::Open(driver.Device, u"");
    test(driver, camera);
  });
}

NTSTATUS StatusOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ClientError& error) {
    return error.Status();
  }
  return STATUS_SUCCESS;
}

TEST(ClientList, IsReadAsFarAsItsCount) {
  WithDriver([](AnsweringDriver& driver, const Camera& camera) {
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{24, 1}, KSNAME_Pin, KSNAME_Clock);
    ASSERT_EQ(camera.Categories().size(), 1U);
    EXPECT_EQ(std::memcmp(&camera.Categories()[0], &KSNAME_Pin, sizeof(GUID)), 0);
  });
}

TEST(ClientList, ThatCountsMoreThanItHoldsIsRefused) {
  WithDriver([](AnsweringDriver& driver, const Camera& camera) {
    for (const ULONG count : {2U, 0x10000000U, 0xFFFFFFFFU}) {
      driver.Answer = BytesOf(KSMULTIPLE_ITEM{24, count}, KSNAME_Pin);
      EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.Categories()); }),
                STATUS_INVALID_BUFFER_SIZE);
    }
    driver.Answer = BytesOf(ULONG{8});
    EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.Categories()); }),
              STATUS_INVALID_BUFFER_SIZE);
  });
}

KS_DATARANGE_VIDEO VideoRange(ULONG formatSize) {
  KS_DATARANGE_VIDEO range{};
  range.DataRange.FormatSize = formatSize;
  range.DataRange.MajorFormat = KSDATAFORMAT_TYPE_VIDEO;
  range.DataRange.Specifier = KSDATAFORMAT_SPECIFIER_VIDEOINFO;
  return range;
}

TEST(ClientRanges, OfOtherKindsOrLengthsAreRefused) {
  WithDriver([](AnsweringDriver& driver, const Camera& camera) {
    const auto ranges = [&] { return StatusOf([&] { static_cast<void>(camera.Ranges()); }); };
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{304, 1}, VideoRange(296));
    EXPECT_EQ(ranges(), STATUS_SUCCESS);
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{304, 2}, VideoRange(296));
    EXPECT_EQ(ranges(), STATUS_INVALID_BUFFER_SIZE);
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{304, 1}, VideoRange(297));
    EXPECT_EQ(ranges(), STATUS_INVALID_BUFFER_SIZE);
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{304, 1}, VideoRange(63));
    EXPECT_EQ(ranges(), STATUS_INVALID_BUFFER_SIZE);
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{304, 1}, VideoRange(295));
    EXPECT_EQ(ranges(), STATUS_NO_MATCH);
    KS_DATARANGE_VIDEO audio = VideoRange(296);
    audio.DataRange.MajorFormat = KSNAME_Pin;
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{304, 1}, audio);
    EXPECT_EQ(ranges(), STATUS_NO_MATCH);
  });
}

TEST(ClientProperty, AsksWithASetAnIdAndADirection) {
  WithDriver([](AnsweringDriver& driver, const Camera& camera) {
    driver.Answer = BytesOf(LONG{7});
    LONG value = 0;
    EXPECT_EQ(camera.Properties().Get(KSNAME_Pin, 5, value), STATUS_SUCCESS);
    EXPECT_EQ(value, 7);
    KSPROPERTY asked{};
    ASSERT_EQ(driver.LastRequest.size(), sizeof(asked));
    std::memcpy(&asked, driver.LastRequest.data(), sizeof(asked));
    EXPECT_EQ(std::memcmp(&asked.Set, &KSNAME_Pin, sizeof(GUID)), 0);
    EXPECT_EQ(asked.Id, 5U);
    EXPECT_EQ(asked.Flags, 1U);
    EXPECT_EQ(camera.Properties().Set(KSNAME_Pin, 6, LONG{3}), STATUS_SUCCESS);
    std::memcpy(&asked, driver.LastRequest.data(), sizeof(asked));
    EXPECT_EQ(asked.Id, 6U);
    EXPECT_EQ(asked.Flags, 2U);
  });
}

TEST(ClientProperty, BelievesNoLengthBeyondItsOwnBlock) {
  WithDriver([](AnsweringDriver& driver, const Camera& camera) {
    driver.Answer = BytesOf(KSMULTIPLE_ITEM{8, 0});
    driver.ToldLength = 4096;
    EXPECT_EQ(camera.Properties().GetSized(KSNAME_Pin, 1).Size(), 4096U);
  });
}

TEST(ClientSupport, OfADescriptionThatIsCutTellsWhatItHas) {
  WithDriver([](AnsweringDriver& driver, const Camera& camera) {
    KSPROPERTY_DESCRIPTION description{};
    description.AccessFlags = 3;
    description.DescriptionSize = sizeof(description);
    description.MembersListCount = 2;
    const KSPROPERTY_MEMBERSHEADER ranges{KSPROPERTY_MEMBER_STEPPEDRANGES, 0x7FFFFFFF, 2, 0};
    driver.Answer = BytesOf(description, ranges);
    const PropertySupport support = camera.Properties().Support(KSNAME_Pin, 1);
    EXPECT_EQ(support.AccessFlags, 3U);
    EXPECT_FALSE(support.Values.has_value());
    EXPECT_FALSE(support.Default.has_value());
    driver.Answer = BytesOf(ULONG{3});
    EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.Properties().Support(KSNAME_Pin, 1)); }),
              STATUS_INVALID_BUFFER_SIZE);
  });
}

}  // namespace
}  // namespace lidcam::client

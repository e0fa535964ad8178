// The record's fields: their order, their widths, and what they hold after creation.

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <vector>

#include "driver/core/control/control_codes.h"
#include "driver/core/settings/settings_store.h"
#include "driver/exposure/auto_exposure.h"
#include "platform/host/nt/registry/registry.h"
#include "tests/driver/core/base/kernel_call_hooks.h"
#include "tests/driver/core/control/bring_up_world.h"

namespace lidcam::test {
namespace {

constexpr std::size_t kPointer = sizeof(void*);

/// One field as the record's table has it.
struct FieldRow {
  const char* Name;
  std::size_t Bytes;   ///< width in the table
  std::int64_t Value;  ///< after the creation of a camera of type 1 with default settings
  std::size_t FoundBytes;
  std::function<std::int64_t(const CameraContext&)> Read;
  std::function<const char*(const CameraContext&)> Address;
};

template <typename Field>
FieldRow Row(const char* name, Field CameraContext::*field, std::size_t bytes, std::int64_t value) {
  return {name,
          bytes,
          value,
          sizeof(Field),
          [field](const CameraContext& camera) { return static_cast<std::int64_t>(camera.*field); },
          [field](const CameraContext& camera) {
            return reinterpret_cast<const char*>(&(camera.*field));
          }};
}

/// A field whose value is compared elsewhere.
template <typename Field>
FieldRow Place(const char* name, Field CameraContext::*field, std::size_t bytes) {
  return {name, bytes, 0, sizeof(Field), nullptr, [field](const CameraContext& camera) {
            return reinterpret_cast<const char*>(&(camera.*field));
          }};
}

using C = CameraContext;

const std::vector<FieldRow>& AllFields() {
  static const std::vector<FieldRow> fields = {
      Place("TransportContext", &C::TransportContext, kPointer),
      Place("Signature", &C::Signature, 4),
      Place("WriteRequest", &C::WriteRequest, kPointer),
      Place("ReadRequest", &C::ReadRequest, kPointer),
      Place("StreamReconfigure", &C::StreamReconfigure, kPointer),
      Row("RequestedWidth", &C::RequestedWidth, 4, 0),
      Row("RequestedHeight", &C::RequestedHeight, 4, 0),
      Row("RequestedBitCount", &C::RequestedBitCount, 4, 0),
      Row("RequestedCompression", &C::RequestedCompression, 4, 0),
      Row("RequestedImageSize", &C::RequestedImageSize, 4, 0),
      Row("RequestedSpare", &C::RequestedSpare, 4, 0),
      Row("RequestedFrameInterval", &C::RequestedFrameInterval, 8, 0),
      Row("StreamAlternateSetting", &C::StreamAlternateSetting, 4, 0),
      Row("FramePacketCount", &C::FramePacketCount, 4, 0),
      Row("FrameStartCount", &C::FrameStartCount, 4, 0),
      Row("FrameInterval", &C::FrameInterval, 8, 0),
      Row("FormatTag", &C::FormatTag, 4, 0),
      Row("CaptureWidth", &C::CaptureWidth, 4, 0),
      Row("CaptureHeight", &C::CaptureHeight, 4, 0),
      Row("MaxAlternateSetting", &C::MaxAlternateSetting, 4, 0),
      Row("Brightness", &C::Brightness, 4, 20),
      Row("Contrast", &C::Contrast, 4, 10),
      Row("Saturation", &C::Saturation, 4, 120),
      Row("Sharpness", &C::Sharpness, 4, 3),
      Row("Gamma", &C::Gamma, 4, 11),
      Row("WhiteBalance", &C::WhiteBalance, 4, 1),
      Row("BackLight", &C::BackLight, 4, 0),
      Row("ColorEnable", &C::ColorEnable, 4, 1),
      Row("Mirror", &C::Mirror, 4, 0),
      Row("Flicker", &C::Flicker, 4, 1),
      Row("Vertical", &C::Vertical, 4, 0),
      Row("Effect", &C::Effect, 4, 0),
      Row("LightState", &C::LightState, 4, 2),
      Row("LDMode", &C::LDMode, 4, 0),
      Row("Exposure", &C::Exposure, 4, 1),
      Row("TriggerCopyA", &C::TriggerCopyA, 4, 0),
      Row("TriggerCopyB", &C::TriggerCopyB, 4, 0),
      Row("MaxAlternateSettingCopy", &C::MaxAlternateSettingCopy, 4, 0),
      Row("Rgain", &C::Rgain, 4, 0),
      Row("Ggain", &C::Ggain, 4, 0),
      Row("Bgain", &C::Bgain, 4, 0),
      Row("StoredControl44", &C::StoredControl44, 4, 0),
      Row("StoredControl45", &C::StoredControl45, 4, 20),
      Row("StoredControl46", &C::StoredControl46, 4, 15),
      Row("LightLimitLow", &C::LightLimitLow, 4, 0),
      Row("LightLimitHigh", &C::LightLimitHigh, 4, 0),
      Row("LightLimitCeiling", &C::LightLimitCeiling, 4, 0),
      Row("AutoExposure", &C::AutoExposure, 4, 1),
      Row("WhiteBalanceAuto", &C::WhiteBalanceAuto, 4, 0),
      Row("StoredControl33", &C::StoredControl33, 4, 0),
      Row("RawRegisterValue", &C::RawRegisterValue, 4, 0),
      Row("RawRegisterAddress", &C::RawRegisterAddress, 4, 0),
      Row("ClockDivider", &C::ClockDivider, 4, 1),
      Row("RawSizeMode", &C::RawSizeMode, 4, 1),
      Row("LED", &C::LED, 4, 4),
      Row("LightSwitchKind", &C::LightSwitchKind, 2, 0),
      Row("AppRegisterBusy", &C::AppRegisterBusy, 4, 0),
      Row("DriverRegisterBusy", &C::DriverRegisterBusy, 4, 0),
      Row("LightTransitionCount", &C::LightTransitionCount, 4, 0),
      Row("LightBrightCount", &C::LightBrightCount, 4, 0),
      Row("StillRequestValue", &C::StillRequestValue, 4, 0),
      Row("StillRequested", &C::StillRequested, 4, 0),
      Row("ReceivedFrameBytes", &C::ReceivedFrameBytes, 4, 0),
      Row("RawFrameSize", &C::RawFrameSize, 4, 0),
      Row("ClearOnReadValue", &C::ClearOnReadValue, 4, 0),
      Row("NegotiationMark", &C::NegotiationMark, 1, 0),
      Row("Streaming", &C::Streaming, 1, 0),
      Row("PowerOn", &C::PowerOn, 2, 1),
      Place("SpareBlock", &C::SpareBlock, kPointer),
      Row("TriggerBase", &C::TriggerBase, 4, 0),
      Row("TriggerFlagA", &C::TriggerFlagA, 4, 0),
      Row("TriggerFlagB", &C::TriggerFlagB, 4, 0),
      Place("WorkerThread", &C::WorkerThread, kPointer),
      Row("WorkerRunning", &C::WorkerRunning, 1, 1),
      Row("SensorType", &C::SensorType, 4, 1),
      Row("SensorDH10", &C::SensorDH10, 1, 0),
      Place("SetupRegisters", &C::SetupRegisters, 8 + 600 * 3),
      Place("NormalRegisters", &C::NormalRegisters, 8 + 600 * 3),
      Place("LowLightRegisters", &C::LowLightRegisters, 8 + 600 * 3),
      Row("ShadowFF0D", &C::ShadowFF0D, 1, 0x03),  // left by the replay's exposure step
      Row("ShadowFF26", &C::ShadowFF26, 1, 0),
      Row("ShadowFF42", &C::ShadowFF42, 1, 0),
      Row("ShadowFF64", &C::ShadowFF64, 1, 0),
      Row("FlickerBandStep", &C::FlickerBandStep, 1, 0x4B),
      Row("ShadowSensor0CVGA0408", &C::ShadowSensor0CVGA0408, 1, 0x21),
      Row("ShadowSensor0C", &C::ShadowSensor0C, 1, 0),
      Row("ShadowSensor12", &C::ShadowSensor12, 1, 0),
      Row("ShadowSensor75", &C::ShadowSensor75, 1, 0),
      Row("UserSharpness", &C::UserSharpness, 1, 0x43),     // from the replay
      Row("UserSaturation", &C::UserSaturation, 1, 120),    // from the replay
      Row("UserSaturation2", &C::UserSaturation2, 1, 120),  // from the replay
      Row("LongConfigDescriptor", &C::LongConfigDescriptor, 4, 193),
      Row("PendingWork", &C::PendingWork, 4, 0),
      Place("WorkBufferA", &C::WorkBufferA, kPointer),
      Place("WorkBufferB", &C::WorkBufferB, kPointer),
      Place("WorkBufferC", &C::WorkBufferC, kPointer),
      Row("WorkBuffersPresent", &C::WorkBuffersPresent, 1, 0),
      Row("WorkBuffersReady", &C::WorkBuffersReady, 1, 0),
      Place("LastDestination", &C::LastDestination, kPointer),
      Place("LastRawFrame", &C::LastRawFrame, kPointer),
      Row("WideLow", &C::WideLow, 1, 0),
      Row("WideHigh", &C::WideHigh, 1, 0),
      Row("BridgeMode", &C::BridgeMode, 1, 0x11),
      Row("FrameSettleCount", &C::FrameSettleCount, 4, 0),
      Row("CommitCount", &C::CommitCount, 2, 0),
      Row("CommitExposure", &C::CommitExposure, 4, 0),
  };
  return fields;
}

class NewCamera : public testing::Test {
 protected:
  NewCamera() {
    world_.Space.Bridge[0x0A] = 0x11;
    world_.Space.Bridge[0x68] = 0x4B;
    world_.Space.Sensor[0x0C] = 0x21;
    camera_ = world_.Create(193);
  }

  BringUpWorld world_;
  CameraPointer camera_;
};

TEST_F(NewCamera, HasTheValuesOfTheFieldTable) {
  ASSERT_NE(camera_, nullptr);
  for (const FieldRow& field : AllFields()) {
    if (!field.Read) continue;
    EXPECT_EQ(field.Read(*camera_), field.Value) << field.Name;
  }
}

TEST(CameraFields, CountSensorsMainsLedSizesAndLightByTheseNumbers) {
  const std::vector<std::int32_t> settings = {
      SensorTypeVGA0408, SensorTypeReserved3, SensorTypeVGA7648,   SensorTypeK82,
      SensorTypeOV7660,  SensorTypeOV7663,    SensorTypeVGA0708,   SensorTypeMi1318,
      SensorTypeOV7670,  FlickerOff,          Flicker50Hz,         Flicker60Hz,
      LedPolicyOn,       LedPolicyOff,        LedPolicyFollowLight};
  EXPECT_EQ(settings, (std::vector<std::int32_t>{1, 3, 5, 6, 7, 8, 9, 10, 11, 0, 1, 2, 2, 3, 4}));
  const std::vector<std::uint32_t> modes = {
      RawMode640x480,   RawMode320x240,   RawMode240x160,     RawMode160x120,    RawMode120x80,
      RawMode1280x1024, LightStateNormal, LightStateLowLight, LightStateInitial, LightStateDummy};
  EXPECT_EQ(modes, (std::vector<std::uint32_t>{1U, 2U, 3U, 4U, 5U, 6U, 0U, 1U, 2U, 3U}));
}

// The values that the bring-up leaves in these fields are replaced at its end.
TEST(CameraAfterBringUp, HasItsStateWhateverTheBringUpLeft) {
  BringUpWorld world;
  CameraContext* camera = nullptr;
  KernelCallHooks hooks;
  hooks.OnAllocate = [&](PVOID memory, SIZE_T size) {
    if (size == sizeof(CameraContext)) camera = static_cast<CameraContext*>(memory);
  };
  world.Space.OnRequest = [&](const WirePacket& packet) {
    camera->Streaming = 1;
    camera->LongConfigDescriptor = 7;
    camera->WorkerRunning = 0;
    camera->StoredControl33 = 7;
    camera->ClockDivider = 8;
    camera->RawSizeMode = RawMode160x120;
    camera->LightTransitionCount = 7;
    camera->LightBrightCount = 7;
    camera->LightState = LightStateDummy;
    camera->ReceivedFrameBytes = 7;
    AeIndex = 7;
    // The last read, sensor register 0xFF0C, is on the bus by now.
    const std::vector<std::string>& accesses = world.Space.Accesses();
    const bool isLast = !accesses.empty() && accesses.back().starts_with("read bridge FF68");
    if (isLast && packet[1] == 0xA1) camera->DriverRegisterBusy = 1;
  };
  const CameraPointer created = world.Create(193);
  ASSERT_EQ(created.get(), camera);
  EXPECT_EQ(camera->Streaming, 0);
  EXPECT_EQ(camera->LongConfigDescriptor, 193U);
  EXPECT_EQ(camera->WorkerRunning, 1);
  EXPECT_EQ(camera->StoredControl33, 0U);
  EXPECT_EQ(camera->ClockDivider, 1);
  EXPECT_EQ(camera->RawSizeMode, 1U);
  EXPECT_EQ(camera->LightTransitionCount, 0);
  EXPECT_EQ(camera->LightBrightCount, 0);
  EXPECT_EQ(camera->LightState, 2U);
  EXPECT_EQ(camera->AppRegisterBusy, 0U);
  EXPECT_EQ(camera->DriverRegisterBusy, 0U);
  EXPECT_EQ(camera->ReceivedFrameBytes, 0U);
  EXPECT_EQ(AeIndex, 30);
}

TEST_F(NewCamera, HasItsFieldsInTheTablesOrderAndWidths) {
  ASSERT_NE(camera_, nullptr);
  const char* end = reinterpret_cast<const char*>(camera_.get());
  for (const FieldRow& field : AllFields()) {
    EXPECT_EQ(field.FoundBytes, field.Bytes) << field.Name;
    EXPECT_GE(field.Address(*camera_), end) << field.Name;
    end = field.Address(*camera_) + field.FoundBytes;
  }
}

TEST_F(NewCamera, CarriesItsSignatureAndTheTransport) {
  ASSERT_NE(camera_, nullptr);
  EXPECT_EQ(std::string(camera_->Signature, 4), "INTE");
  const CameraTransport transport = world_.Space.Transport();
  EXPECT_EQ(camera_->TransportContext, transport.TransportContext);
  EXPECT_EQ(camera_->WriteRequest, transport.WriteRequest);
  EXPECT_EQ(camera_->ReadRequest, transport.ReadRequest);
  EXPECT_EQ(camera_->StreamReconfigure, transport.StreamReconfigure);
}

TEST_F(NewCamera, HasASpareBlockAndNoOtherMemory) {
  ASSERT_NE(camera_, nullptr);
  EXPECT_NE(camera_->SpareBlock, nullptr);
  EXPECT_EQ(camera_->WorkerThread, nullptr);
  EXPECT_EQ(camera_->WorkBufferA, nullptr);
  EXPECT_EQ(camera_->WorkBufferB, nullptr);
  EXPECT_EQ(camera_->WorkBufferC, nullptr);
  EXPECT_EQ(static_cast<void*>(camera_->LastDestination), nullptr);
  EXPECT_EQ(static_cast<void*>(camera_->LastRawFrame), nullptr);
}

TEST_F(NewCamera, HasEmptyRegisterTables) {
  ASSERT_NE(camera_, nullptr);
  for (const RegisterSetTable* table :
       {&camera_->SetupRegisters, &camera_->NormalRegisters, &camera_->LowLightRegisters}) {
    EXPECT_EQ(table->Present, 0U);
    EXPECT_EQ(table->Count, 0U);
    for (const RegisterSetEntry& entry : table->Entries) {
      ASSERT_EQ(entry.Marker | entry.Register | entry.Value, 0);
    }
  }
}

TEST_F(NewCamera, ReadsZeroForTheGainsThatNothingWrites) {
  ASSERT_NE(camera_, nullptr);
  EXPECT_EQ(camera_->Rgain, 0U);
  EXPECT_EQ(camera_->Ggain, 0U);
  EXPECT_EQ(camera_->Bgain, 0U);
  EXPECT_EQ(camera_->WhiteBalanceAuto, 0U);
}

constexpr const WCHAR* kUnwrittenValues[] = {KERNEL_TEXT("Rgain"), KERNEL_TEXT("Ggain"),
                                             KERNEL_TEXT("Bgain"), KERNEL_TEXT("WhiteBalanceAuto")};

// The stored value of a setting, or a marker if there is none.
std::uint32_t StoredValue(HANDLE root, const WCHAR* name) {
  std::uint32_t value = 0xBAD;
  std::uint32_t size = sizeof(value);
  EXPECT_EQ(ReadSettingValue(root, kSettingsSubkey, name, REG_DWORD, &value, size), 0);
  return value;
}

class CameraWithSettingsFile : public NewCamera {
 protected:
  CameraWithSettingsFile() {
    file_ = std::filesystem::temp_directory_path() /
            ("lidcam-fields-" + std::to_string(getpid()) + ".reg");
    OpenFile();
  }
  ~CameraWithSettingsFile() override {
    host::CloseRegistry();
    std::filesystem::remove(file_);
  }

  void OpenFile() { host::SetRegistryFile(file_.string()); }
  HANDLE OpenRoot() {
    return OpenSettingsRoot(static_cast<const TransportRecordHead*>(camera_->TransportContext),
                            nullptr, SettingsRootDevice);
  }
  void ExpectUnwrittenFieldsZero() {
    EXPECT_EQ(camera_->Rgain, 0U);
    EXPECT_EQ(camera_->Ggain, 0U);
    EXPECT_EQ(camera_->Bgain, 0U);
    EXPECT_EQ(camera_->WhiteBalanceAuto, 0U);
  }

 private:
  std::filesystem::path file_;
};

// Another program's values are not loaded, and the next save puts zeroes in their place.
TEST_F(CameraWithSettingsFile, KeepsZeroInTheGainsThroughControlsLoadAndSave) {
  ASSERT_NE(camera_, nullptr);
  HANDLE root = OpenRoot();
  HANDLE key = nullptr;
  ASSERT_EQ(CreateKeyChain(root, KEY_ALL_ACCESS, kSettingsSubkey, key), 0);
  for (const WCHAR* const name : kUnwrittenValues) EXPECT_EQ(WriteSettingValue(key, name, 77), 0);
  CloseSettingsKey(key);
  CloseSettingsKey(root);

  for (std::uint32_t code = 0; code <= 47; ++code) {
    for (const std::uint32_t flags : {kControlFlagAuto, kControlFlagManual}) {
      SetControl(*camera_, {code, 1, 1, flags, 0, {}});
      ExpectUnwrittenFieldsZero();
    }
  }
  LoadSettings(*camera_, kSettingsSubkey);
  ExpectUnwrittenFieldsZero();
  SaveSettings(*camera_, kSettingsSubkey);
  ExpectUnwrittenFieldsZero();

  OpenFile();
  root = OpenRoot();
  for (const WCHAR* const name : kUnwrittenValues) EXPECT_EQ(StoredValue(root, name), 0U);
  CloseSettingsKey(root);
  LoadSettings(*camera_, kSettingsSubkey);
  ExpectUnwrittenFieldsZero();
}

Status NoReconfigure(void*, std::uint32_t*) {
  return 0;
}

void NobodyStops(void*) {}

TEST(CameraTransport, IsCopiedWithTheCallbacksThatABringUpNeverCalls) {
  BringUpWorld world;
  CameraTransport transport = world.Space.Transport();
  transport.StreamReconfigure = NoReconfigure;
  transport.ThreadStops = NobodyStops;
  constexpr std::array<std::uint8_t, 18> kDescriptor{};
  const CameraPointer camera(
      CreateCameraContext(transport, world.Capabilities, kDescriptor.data(), 0));
  ASSERT_NE(camera, nullptr);
  EXPECT_EQ(camera->StreamReconfigure, &NoReconfigure);
  EXPECT_EQ(camera->ThreadStops, &NobodyStops);
}

}  // namespace
}  // namespace lidcam::test

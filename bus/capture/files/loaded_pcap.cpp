// The functions of libpcap that captures are read and written by, under their own names: each loads the library at
// its first call.
#include <pcap/pcap.h>

#include "bus/capture/files/loaded_functions.h"

namespace {

using lidcam::bus::LoadedFunction;

constexpr const char* kPcapLibrary = LIDCAM_PCAP_LIBRARY;

}  // namespace

pcap_t* pcap_open_dead(int linkType, int largest) {
  static const LoadedFunction<decltype(pcap_open_dead)> function(kPcapLibrary, "pcap_open_dead");
  return function(linkType, largest);
}

pcap_t* pcap_fopen_offline(FILE* file, char* reason) {
  static const LoadedFunction<decltype(pcap_fopen_offline)> function(kPcapLibrary,
                                                                     "pcap_fopen_offline");
  return function(file, reason);
}

void pcap_close(pcap_t* file) {
  static const LoadedFunction<decltype(pcap_close)> function(kPcapLibrary, "pcap_close");
  function(file);
}

int pcap_next_ex(pcap_t* file, pcap_pkthdr** header, const u_char** bytes) {
  static const LoadedFunction<decltype(pcap_next_ex)> function(kPcapLibrary, "pcap_next_ex");
  return function(file, header, bytes);
}

char* pcap_geterr(pcap_t* file) {
  static const LoadedFunction<decltype(pcap_geterr)> function(kPcapLibrary, "pcap_geterr");
  return function(file);
}

int pcap_datalink(pcap_t* file) {
  static const LoadedFunction<decltype(pcap_datalink)> function(kPcapLibrary, "pcap_datalink");
  return function(file);
}

const char* pcap_datalink_val_to_name(int linkType) {
  static const LoadedFunction<decltype(pcap_datalink_val_to_name)> function(
      kPcapLibrary, "pcap_datalink_val_to_name");
  return function(linkType);
}

pcap_dumper_t* pcap_dump_fopen(pcap_t* file, FILE* stream) {
  static const LoadedFunction<decltype(pcap_dump_fopen)> function(kPcapLibrary, "pcap_dump_fopen");
  return function(file, stream);
}

FILE* pcap_dump_file(pcap_dumper_t* dumper) {
  static const LoadedFunction<decltype(pcap_dump_file)> function(kPcapLibrary, "pcap_dump_file");
  return function(dumper);
}

int pcap_dump_flush(pcap_dumper_t* dumper) {
  static const LoadedFunction<decltype(pcap_dump_flush)> function(kPcapLibrary, "pcap_dump_flush");
  return function(dumper);
}

void pcap_dump_close(pcap_dumper_t* dumper) {
  static const LoadedFunction<decltype(pcap_dump_close)> function(kPcapLibrary, "pcap_dump_close");
  function(dumper);
}

void pcap_dump(u_char* dumper, const pcap_pkthdr* header, const u_char* bytes) {
  static const LoadedFunction<decltype(pcap_dump)> function(kPcapLibrary, "pcap_dump");
  function(dumper, header, bytes);
}

// The tables of both transfer syntaxes, read back by code of the test's own: each tells the parameters of the
// interface, and both tell the same.
#include "platform/windows/linkTables.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using platform::linkTables::proxyInfo;

// One parameter as words: "in long", "out section", "result status".
using Words = std::vector<std::string>;

const Words kByValues = {
    "in long",   "in hyper",  "in long",   "in hyper",  "in long",   "in long 1..131072", "in name sized by 48",
    "in long",   "out long",  "out long",  "out hyper", "out long",  "out hyper",         "out hyper",
    "out hyper", "out hyper", "out hyper", "out hyper", "out hyper", "out hyper",         "out hyper",
    "out hyper", "out hyper", "out long",  "out hyper", "out long",  "out long",          "result status"};
const Words kByHandles = {"in long",     "in hyper",  "in long",   "in hyper",     "in long",     "in name",
                          "in long",     "in pipe",   "out long",  "out long",     "out hyper",   "out long",
                          "out section", "out event", "out event", "out event",    "out event",   "out section",
                          "out event",   "out event", "out event", "out event",    "out process", "out long",
                          "out hyper",   "out long",  "out long",  "result status"};

std::string HandleName(unsigned kind) {
  switch (kind) {
    case 2: return "event";
    case 4: return "process";
    case 6: return "section";
    case 12: return "pipe";
    default: return "handle of kind " + std::to_string(kind);
  }
}

std::string DirectionName(bool in, bool out, bool result) {
  if (result) return out && !in ? "result " : "broken result ";
  if (in == out) return "broken ";
  return in ? "in " : "out ";
}

template <class Number>
Number At(const unsigned char* place) {
  Number number;
  std::memcpy(&number, place, sizeof number);
  return number;
}

// --- NDR 2.0 ---

std::string NdrTypeName(const unsigned char* type) {
  switch (type[0]) {
    case 0xB7:
      EXPECT_EQ(type[1], 8);
      return "long " + std::to_string(At<std::int32_t>(type + 2)) + ".." + std::to_string(At<std::int32_t>(type + 6));
    case 0x25:
      if (type[1] == 0x5C) return "name";
      EXPECT_EQ(type[1], 0x44);
      EXPECT_EQ(type[2], 0x28) << "a parameter, which is a long";
      EXPECT_EQ(type[3], 0);
      return "name sized by " + std::to_string(At<std::uint16_t>(type + 4));
    case 0x3C: EXPECT_EQ(At<std::uint32_t>(type + 2), 0u) << "the access of the sender"; return HandleName(type[1]);
    default: return "type " + std::to_string(type[0]);
  }
}

std::string NdrBaseName(unsigned char type) {
  return type == 0x08 ? "long" : type == 0x0B ? "hyper" : type == 0x10 ? "status" : "base " + std::to_string(type);
}

Words NdrParameters(const MIDL_SYNTAX_INFO& syntax, std::size_t number) {
  const unsigned char* place = syntax.ProcString + syntax.FmtStringOffset[number];
  EXPECT_EQ(place[0], 0) << "the binding is an argument";
  EXPECT_EQ(At<std::uint16_t>(place + 6), number);
  EXPECT_EQ(At<std::uint16_t>(place + 8), 29 * 8);
  EXPECT_EQ(place[10], 0x32);
  EXPECT_EQ(place[19], 28);
  Words words;
  std::uint16_t offset = 0;
  for (place += 30; words.size() < 28; place += 6) {
    const auto flags = At<std::uint16_t>(place);
    EXPECT_EQ(At<std::uint16_t>(place + 2), offset += 8);
    const std::string direction = DirectionName((flags & 0x8) != 0, (flags & 0x10) != 0, (flags & 0x20) != 0);
    const bool isBase = (flags & 0x40) != 0;
    words.push_back(direction +
                    (isBase ? NdrBaseName(place[4]) : NdrTypeName(syntax.TypeString + At<std::uint16_t>(place + 4))));
  }
  return words;
}

// --- NDR64 ---

std::string Ndr64TypeName(PNDR64_FORMAT format) {
  switch (*static_cast<const NDR64_FORMAT_CHAR*>(format)) {
    case 0x05: return "long";
    case 0x07: return "hyper";
    case 0x13: return "status";
    case 0xA4: {
      const auto& range = *static_cast<const NDR64_RANGE_FORMAT*>(format);
      EXPECT_EQ(range.RangeType, 0x05);
      return "long " + std::to_string(range.MinValue) + ".." + std::to_string(range.MaxValue);
    }
    case 0x64: {
      const auto& name = *static_cast<const NDR64_SIZED_CONFORMANT_STRING_FORMAT*>(format);
      EXPECT_EQ(name.Header.ElementSize, 2);
      if (name.Header.Flags.IsSized == 0) return "name";
      const auto* const size = static_cast<const unsigned char*>(name.SizeDescription);
      EXPECT_EQ(size[4], FC_EXPR_VAR);
      EXPECT_EQ(size[5], 0x05);
      return "name sized by " + std::to_string(At<std::uint32_t>(size + 8));
    }
    case 0x3C: return HandleName(static_cast<const unsigned char*>(format)[1]);
    default: return "unknown";
  }
}

Words Ndr64Parameters(const MIDL_SYNTAX_INFO& syntax, std::size_t number) {
  const auto* const procedures = reinterpret_cast<const FormatInfoRef*>(syntax.FmtStringOffset);
  const auto* const place = static_cast<const unsigned char*>(procedures[number]);
  const auto head = At<NDR64_PROC_FORMAT>(place);
  EXPECT_EQ(head.Flags & 7, 0u) << "the binding is an argument";
  EXPECT_EQ(head.StackSize, 29u * 8);
  EXPECT_EQ(head.NumberOfParams, 28);
  EXPECT_EQ(place[sizeof head], 0x72);
  Words words;
  std::uint32_t offset = 0;
  const unsigned char* next = place + sizeof head + head.ExtensionSize;
  for (; words.size() < 28; next += sizeof(NDR64_PARAM_FORMAT)) {
    const auto parameter = At<NDR64_PARAM_FORMAT>(next);
    EXPECT_EQ(parameter.StackOffset, offset += 8);
    const auto& flags = parameter.Attributes;
    words.push_back(DirectionName(flags.IsIn != 0, flags.IsOut != 0, flags.IsReturn != 0) +
                    Ndr64TypeName(parameter.Type));
  }
  return words;
}

TEST(LinkTables, TellBothTransferSyntaxes) {
  ASSERT_EQ(proxyInfo.nCount, 2u);
  EXPECT_EQ(proxyInfo.pSyntaxInfo[0].TransferSyntax.SyntaxGUID.Data1, 0x8A885D04u);
  EXPECT_EQ(proxyInfo.pSyntaxInfo[0].TransferSyntax.SyntaxVersion.MajorVersion, 2);
  EXPECT_EQ(proxyInfo.pSyntaxInfo[1].TransferSyntax.SyntaxGUID.Data1, 0x71710533u);
  EXPECT_EQ(proxyInfo.pSyntaxInfo[1].TransferSyntax.SyntaxVersion.MajorVersion, 1);
}

TEST(LinkTables, TellTheInterface) {
  const auto& client = *static_cast<const RPC_CLIENT_INTERFACE*>(proxyInfo.pStubDesc->RpcInterfaceInformation);
  EXPECT_EQ(client.InterfaceId.SyntaxGUID.Data1, 0x875AC244u);
  EXPECT_EQ(client.InterfaceId.SyntaxVersion.MajorVersion, 1);
  EXPECT_EQ(client.InterfaceId.SyntaxVersion.MinorVersion, 1);
}

TEST(LinkTables, HaveTheSameParametersInBothSyntaxes) {
  EXPECT_EQ(NdrParameters(proxyInfo.pSyntaxInfo[0], 0), kByValues);
  EXPECT_EQ(Ndr64Parameters(proxyInfo.pSyntaxInfo[1], 0), kByValues);
  EXPECT_EQ(NdrParameters(proxyInfo.pSyntaxInfo[0], 1), kByHandles);
  EXPECT_EQ(Ndr64Parameters(proxyInfo.pSyntaxInfo[1], 1), kByHandles);
}

}  // namespace

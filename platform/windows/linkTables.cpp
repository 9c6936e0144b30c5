#include "platform/windows/linkTables.h"

#include <cstdlib>

namespace platform::linkTables {

namespace {

constexpr Parameter In(Type type) { return {.isOut = false, .type = type}; }
constexpr Parameter Out(Type type) { return {.isOut = true, .type = type}; }

// Both procedures differ in how the name is told, in the pipe, and in what stands for a handle.
constexpr Procedure Parameters(std::array<Parameter, 3> name, Type section, Type event, Type process) {
  using enum Type;
  return {
      In(Int32),    In(Int64),  In(Int32),  In(Int64),  In(Int32),               // client, link and stream
      name[0],      name[1],    name[2],                                         //
      Out(Int32),   Out(Int32), Out(Int64), Out(Int32),                          // the link
      Out(section), Out(event), Out(event), Out(event), Out(event),              // what the client reads
      Out(section), Out(event), Out(event), Out(event), Out(event),              // what it writes
      Out(process), Out(Int32), Out(Int64), Out(Int32), Out(Int32), Out(Status)  // the service, the stream, the end
  };
}

constexpr Procedure kValues =
    Parameters({In(Type::NameLength), In(Type::SizedName), In(Type::Int32)}, Type::Int64, Type::Int64, Type::Int64);
constexpr Procedure kHandles =
    Parameters({In(Type::Name), In(Type::Int32), In(Type::Pipe)}, Type::Section, Type::Event, Type::Process);

constexpr std::size_t kSlot = 8;  // Of the stack; the binding has the first.
constexpr std::size_t kStackSize = (1 + kParameters) * kSlot;
constexpr std::size_t kNameLengthOffset = (1 + 5) * kSlot;
static_assert(kValues[5].type == Type::NameLength);

constexpr std::size_t OffsetOf(std::size_t parameter) { return (1 + parameter) * kSlot; }
constexpr bool IsResult(std::size_t parameter) { return parameter == kParameters - 1; }
constexpr bool IsBase(Type type) { return type == Type::Int32 || type == Type::Int64 || type == Type::Status; }
constexpr bool IsName(Type type) { return type == Type::SizedName || type == Type::Name; }

// The room that the parameters of one direction take at most, but for those that say themselves how much it is.
constexpr std::size_t RoomFor(const Procedure& procedure, bool isOut) {
  std::size_t room = 0;
  for (const auto& [out, type] : procedure) {
    if (out != isOut) continue;
    if (type == Type::Int64) room += 16;
    if (type == Type::Int32 || type == Type::NameLength || type == Type::Status) room += 8;
  }
  return room;
}

// A table of bytes on its way.
template <std::size_t Size>
struct Bytes {
  std::array<unsigned char, Size> data{};
  std::size_t used = 0;

  constexpr void Byte(std::size_t value) { data.at(used++) = static_cast<unsigned char>(value); }
  constexpr void Short(std::size_t value) {
    Byte(value & 0xFF);
    Byte(value >> 8 & 0xFF);
  }
  constexpr void Long(std::size_t value) {
    Short(value & 0xFFFF);
    Short(value >> 16 & 0xFFFF);
  }
};

// --- NDR 2.0 ---

namespace ndr {

enum : unsigned char {
  FC_LONG = 0x08,
  FC_HYPER = 0x0B,
  FC_ERROR_STATUS_T = 0x10,
  FC_C_WSTRING = 0x25,
  FC_BIND_PRIMITIVE = 0x32,
  FC_SYSTEM_HANDLE = 0x3C,
  FC_STRING_SIZED = 0x44,
  FC_PAD = 0x5C,
  FC_RANGE = 0xB7,
};

enum : std::uint16_t {
  kMustSize = 0x1,
  kMustFree = 0x2,
  kIn = 0x8,
  kOut = 0x10,
  kReturn = 0x20,
  kBaseType = 0x40,
  kByValue = 0x80,
  kSimpleRef = 0x100,
  kServerAllocatesOneSlot = 0x2000,
};

constexpr std::size_t kTypeStringSize = 47;
constexpr std::size_t kRange = 2, kSizedName = 12, kName = 20, kEvent = 22, kSection = 28, kProcess = 34, kPipe = 40;

// The number that stands for a kind of handle.
constexpr unsigned char HandleKind(Type type) {
  switch (type) {
    case Type::Event: return 2;
    case Type::Process: return 4;
    case Type::Section: return 6;
    default: return 12;  // A pipe.
  }
}

constexpr Bytes<kTypeStringSize> TypeString() {
  Bytes<kTypeStringSize> types;
  types.Short(0);
  types.Byte(FC_RANGE);
  types.Byte(FC_LONG);
  types.Long(kLeastNameLength);
  types.Long(kMostNameLength);
  types.Byte(FC_C_WSTRING);
  types.Byte(FC_STRING_SIZED);
  types.Byte(0x20 | FC_LONG);  // Told by a parameter,
  types.Byte(0);               // as it stands,
  types.Short(kNameLengthOffset);
  types.Short(1);  // which comes ahead.
  types.Byte(FC_C_WSTRING);
  types.Byte(FC_PAD);
  for (const Type handle : {Type::Event, Type::Section, Type::Process, Type::Pipe}) {
    types.Byte(FC_SYSTEM_HANDLE);
    types.Byte(HandleKind(handle));
    types.Long(0);  // With the access that the sender has.
  }
  types.Byte(0);
  return types;
}

constexpr std::size_t TypeOf(Type type) {
  switch (type) {
    case Type::Int32: return FC_LONG;
    case Type::Int64: return FC_HYPER;
    case Type::Status: return FC_ERROR_STATUS_T;
    case Type::NameLength: return kRange;
    case Type::SizedName: return kSizedName;
    case Type::Name: return kName;
    case Type::Event: return kEvent;
    case Type::Section: return kSection;
    case Type::Process: return kProcess;
    default: return kPipe;
  }
}

constexpr std::size_t FlagsOf(const Parameter& parameter, bool isResult) {
  const auto [isOut, type] = parameter;
  if (isResult) return kOut | kReturn | kBaseType;
  if (isOut && IsBase(type)) return kOut | kBaseType | kSimpleRef | kServerAllocatesOneSlot;
  if (isOut) return kOut | kMustSize | kMustFree | kSimpleRef | kServerAllocatesOneSlot;
  if (IsBase(type)) return kIn | kBaseType;
  if (type == Type::NameLength) return kIn | kByValue;
  return kIn | kMustSize | kMustFree | (IsName(type) ? kSimpleRef : kByValue);
}

constexpr std::size_t kHeadSize = 30;
constexpr std::size_t kProcedureSize = kHeadSize + 6 * kParameters;
constexpr std::size_t kProcedureStringSize = 2 * kProcedureSize + 1;

constexpr void AddProcedure(Bytes<kProcedureStringSize>& text, std::size_t number, const Procedure& procedure) {
  const bool sized = procedure[6].type == Type::SizedName;
  const bool sizesOut = !IsBase(procedure[12].type);
  text.Byte(0);     // The binding is an argument.
  text.Byte(0x48);  // Interpreted.
  text.Long(0);
  text.Short(number);
  text.Short(kStackSize);
  text.Byte(FC_BIND_PRIMITIVE);
  text.Byte(0);
  text.Short(0);
  text.Short(RoomFor(procedure, false));
  text.Short(RoomFor(procedure, true));
  text.Byte(0x46u | (sizesOut ? 1u : 0u));  // The client sizes; a result; what follows.
  text.Byte(kParameters);
  text.Byte(10);               // The size of what follows:
  text.Byte(sized ? 5u : 1u);  // how a size is told, and whether the server checks it,
  text.Short(0);
  text.Short(sized ? 1u : 0u);
  text.Short(0);
  text.Short(0);
  for (std::size_t at = 0; at < kParameters; ++at) {
    text.Short(FlagsOf(procedure[at], IsResult(at)));
    text.Short(OffsetOf(at));
    text.Short(TypeOf(procedure[at].type));
  }
}

constexpr Bytes<kProcedureStringSize> ProcedureString() {
  Bytes<kProcedureStringSize> text;
  AddProcedure(text, kByValues, kValues);
  AddProcedure(text, kByHandles, kHandles);
  text.Byte(0);
  return text;
}

// The runtime wants both to lie at even addresses.
alignas(4) constexpr Bytes<kTypeStringSize> kTypes = TypeString();
alignas(4) constexpr Bytes<kProcedureStringSize> kProcedures = ProcedureString();
static_assert(kTypes.used == kTypeStringSize && kProcedures.used == kProcedureStringSize);
constexpr unsigned short kOffsets[] = {0, kProcedureSize};

}  // namespace ndr

// --- NDR64 ---

namespace ndr64 {

constexpr NDR64_FORMAT_CHAR kInt32 = 0x05, kInt64 = 0x07, kErrorStatus = 0x13;
constexpr NDR64_FORMAT_CHAR FC64_SYSTEM_HANDLE = 0x3C, FC64_CONF_WCHAR_STRING = 0x64, FC64_BIND_PRIMITIVE = 0x72,
                            FC64_RANGE = 0xA4;

constexpr NDR64_RANGE_FORMAT kRange{.FormatCode = FC64_RANGE,
                                    .RangeType = kInt32,
                                    .Reserved = 0,
                                    .MinValue = kLeastNameLength,
                                    .MaxValue = kMostNameLength};

struct SizeExpression {
  NDR64_FORMAT_UINT32 comesAhead;
  NDR64_EXPR_VAR parameter;
};
constexpr SizeExpression kNameSize{
    .comesAhead = 1,
    .parameter = {.ExprType = FC_EXPR_VAR, .VarType = kInt32, .Reserved = 0, .Offset = kNameLengthOffset}};

constexpr NDR64_STRING_HEADER_FORMAT StringOf(bool sized) {
  NDR64_STRING_HEADER_FORMAT header{};
  header.FormatCode = FC64_CONF_WCHAR_STRING;
  header.Flags.IsSized = sized ? 1 : 0;
  header.ElementSize = sizeof(char16_t);
  return header;
}
constexpr NDR64_SIZED_CONFORMANT_STRING_FORMAT kSizedName{.Header = StringOf(true), .SizeDescription = &kNameSize};
constexpr NDR64_CONFORMANT_STRING_FORMAT kName{.Header = StringOf(false)};

struct HandleFormat {
  NDR64_FORMAT_CHAR code;
  NDR64_UINT8 kind;
  NDR64_UINT32 access;  // 0: that of the sender.
};
constexpr HandleFormat HandleOf(Type type) {
  return {.code = FC64_SYSTEM_HANDLE, .kind = ndr::HandleKind(type), .access = 0};
}
constexpr HandleFormat kEvent = HandleOf(Type::Event), kSection = HandleOf(Type::Section),
                       kProcess = HandleOf(Type::Process), kPipe = HandleOf(Type::Pipe);

constexpr PNDR64_FORMAT FormatOf(Type type) {
  switch (type) {
    case Type::Int32: return &kInt32;
    case Type::Int64: return &kInt64;
    case Type::Status: return &kErrorStatus;
    case Type::NameLength: return &kRange;
    case Type::SizedName: return &kSizedName;
    case Type::Name: return &kName;
    case Type::Event: return &kEvent;
    case Type::Section: return &kSection;
    case Type::Process: return &kProcess;
    default: return &kPipe;
  }
}

constexpr NDR64_PARAM_FLAGS FlagsOf(const Parameter& parameter, bool isResult) {
  const auto [isOut, type] = parameter;
  NDR64_PARAM_FLAGS flags{};
  flags.IsIn = isOut ? 0 : 1;
  flags.IsOut = isOut ? 1 : 0;
  flags.IsReturn = isResult ? 1 : 0;
  flags.IsBasetype = IsBase(type) ? 1 : 0;
  flags.MustSize = flags.MustFree = IsBase(type) || type == Type::NameLength ? 0 : 1;
  flags.IsSimpleRef = (isOut && !isResult) || IsName(type) ? 1 : 0;
  flags.IsByValue = flags.IsSimpleRef != 0 ? 0 : 1;
  flags.UseCache = isOut && !isResult ? 1 : 0;
  return flags;
}

struct ProcedureFormat {
  NDR64_PROC_FORMAT head;
  NDR64_BIND_AND_NOTIFY_EXTENSION binding;
  NDR64_PARAM_FORMAT parameters[kParameters];
};
static_assert(offsetof(ProcedureFormat, parameters) == sizeof(NDR64_PROC_FORMAT) + 8);

constexpr NDR64_UINT32 HeadFlags(const Procedure& procedure) {
  constexpr NDR64_UINT32 kInterpreted = 0x40, kServerMustSize = 0x20000, kClientMustSize = 0x40000,
                         kHasReturn = 0x80000, kServerHasCorrelation = 0x200000, kHasExtensions = 0x1000000;
  return kInterpreted | kClientMustSize | kHasReturn | kHasExtensions |
         (IsBase(procedure[12].type) ? 0 : kServerMustSize) |
         (procedure[6].type == Type::SizedName ? kServerHasCorrelation : 0);
}

constexpr ProcedureFormat FormatOf(const Procedure& procedure) {
  ProcedureFormat format{};
  format.head.Flags = HeadFlags(procedure);
  format.head.StackSize = kStackSize;
  format.head.ConstantClientBufferSize = static_cast<NDR64_UINT32>(RoomFor(procedure, false));
  format.head.ConstantServerBufferSize = static_cast<NDR64_UINT32>(RoomFor(procedure, true));
  format.head.NumberOfParams = kParameters;
  format.head.ExtensionSize = sizeof format.binding;
  format.binding.Binding.HandleType = FC64_BIND_PRIMITIVE;
  for (std::size_t at = 0; at < kParameters; ++at) {
    format.parameters[at].Type = FormatOf(procedure[at].type);
    format.parameters[at].Attributes = FlagsOf(procedure[at], IsResult(at));
    format.parameters[at].StackOffset = static_cast<NDR64_UINT32>(OffsetOf(at));
  }
  return format;
}

constexpr ProcedureFormat kByValuesFormat = FormatOf(kValues);
constexpr ProcedureFormat kByHandlesFormat = FormatOf(kHandles);
constexpr FormatInfoRef kFormats[] = {&kByValuesFormat, &kByHandlesFormat};

}  // namespace ndr64

// --- The interface ---

constexpr RPC_SYNTAX_IDENTIFIER kInterface{
    {0x875AC244, 0xB80A, 0x420E, {0x90, 0xA2, 0x9C, 0x69, 0xDF, 0xD8, 0xE7, 0x28}}, {1, 1}};
RPC_SYNTAX_IDENTIFIER ndrSyntax{{0x8A885D04, 0x1CEB, 0x11C9, {0x9F, 0xE8, 0x08, 0x00, 0x2B, 0x10, 0x48, 0x60}}, {2, 0}};
constexpr RPC_SYNTAX_IDENTIFIER kNdr64Syntax{
    {0x71710533, 0xBEBA, 0x4937, {0x83, 0x19, 0xB5, 0xDB, 0xEF, 0x9C, 0xCC, 0x36}}, {1, 0}};

void* __RPC_API Allocate(std::size_t size) { return std::malloc(size); }
void __RPC_API Free(void* memory) { std::free(memory); }

RPC_CLIENT_INTERFACE clientInterface{
    .Length = sizeof(RPC_CLIENT_INTERFACE),
    .InterfaceId = kInterface,
    .TransferSyntax = ndrSyntax,
    .DispatchTable = nullptr,
    .RpcProtseqEndpointCount = 0,
    .RpcProtseqEndpoint = nullptr,
    .Reserved = 0,
    .InterpreterInfo = &proxyInfo,
    .Flags = 0x02000000,  // More than one transfer syntax.
};

MIDL_STUB_DESC StubDescription() {
  MIDL_STUB_DESC description{};
  description.RpcInterfaceInformation = &clientInterface;
  description.pfnAllocate = &Allocate;
  description.pfnFree = &Free;
  description.pFormatTypes = ndr::kTypes.data.data();
  description.fCheckBounds = 1;
  description.Version = 0x60001;
  description.MIDLVersion = 0x8010272;
  description.mFlags = 0x2000001;
  description.Reserved4 = const_cast<MIDL_STUBLESS_PROXY_INFO*>(&proxyInfo);
  return description;
}

const MIDL_STUB_DESC stubDescription = StubDescription();

// The second one is told by its procedures' addresses, in the place of offsets.
MIDL_SYNTAX_INFO syntaxes[] = {
    {.TransferSyntax = ndrSyntax,
     .DispatchTable = nullptr,
     .ProcString = ndr::kProcedures.data.data(),
     .FmtStringOffset = ndr::kOffsets,
     .TypeString = ndr::kTypes.data.data(),
     .aUserMarshalQuadruple = nullptr,
     .pReserved1 = 0,
     .pReserved2 = 0},
    {.TransferSyntax = kNdr64Syntax,
     .DispatchTable = nullptr,
     .ProcString = nullptr,
     .FmtStringOffset = reinterpret_cast<const unsigned short*>(ndr64::kFormats),
     .TypeString = nullptr,
     .aUserMarshalQuadruple = nullptr,
     .pReserved1 = 0,
     .pReserved2 = 0},
};

}  // namespace

const std::array<Procedure, 2> procedures{kValues, kHandles};

const MIDL_STUBLESS_PROXY_INFO proxyInfo{.pStubDesc = &stubDescription,
                                         .ProcFormatString = ndr::kProcedures.data.data(),
                                         .FormatStringOffset = ndr::kOffsets,
                                         .pTransferSyntax = &ndrSyntax,
                                         .nCount = std::size(syntaxes),
                                         .pSyntaxInfo = syntaxes};

}  // namespace platform::linkTables

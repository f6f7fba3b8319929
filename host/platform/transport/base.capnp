@0xd6f1c3a2b4e58a91;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("wire::base");

# What every interface answers across processes, as android.hidl.base@1.0::IBase does. Calls
# without parameters or results carry no message at all.
struct InterfaceChainResults {
  descriptors @0 :List(Text);
}

struct InterfaceDescriptorResults {
  descriptor @0 :Text;
}

# IBase::debug writes to a descriptor, which does not cross: the serving side dumps into a pipe
# and returns what was written.
struct DebugParams {
  options @0 :List(Text);
}

struct DebugResults {
  text @0 :Data;
}

# The body of a failed call's reply.
struct CallError {
  exception @0 :Int32;
  errorCode @1 :Int32;
  message @2 :Text;
}

# IBase::getDebugInfo: the process the object lives in.
struct DebugInfoResults {
  pid @0 :Int32;
  ptr @1 :UInt64;
  arch @2 :Int32;
}

# A handle: its descriptors travel beside the message, `fdCount` of them from the frame's
# descriptor `firstFd` on; its ints are here. A null handle is an absent field.
struct NativeHandle {
  firstFd @0 :UInt32;
  fdCount @1 :UInt32;
  ints @2 :List(Int32);
}

struct Grantor {
  flags @0 :UInt32;
  fdIndex @1 :UInt32;
  offset @2 :UInt32;
  extent @3 :UInt64;
}

# A fast message queue's descriptor (fmq_sync).
struct QueueDescriptor {
  grantors @0 :List(Grantor);
  handle @1 :NativeHandle;
  quantum @2 :UInt32;
  flags @3 :UInt32;
}

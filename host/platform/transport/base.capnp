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

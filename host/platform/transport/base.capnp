@0xd6f1c3a2b4e58a91;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("wire::base");

# What every interface answers across processes, as android.hidl.base@1.0::IBase does.
interface Base {
  ping @0 () -> ();
  interfaceChain @1 () -> (descriptors :List(Text));
  interfaceDescriptor @2 () -> (descriptor :Text);
  # The object's dump: IBase::debug writes to a descriptor, which does not cross, so the stub
  # writes into a pipe and returns what was written.
  debug @3 (options :List(Text)) -> (text :Data);
}

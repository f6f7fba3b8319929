#!/usr/bin/env python3
"""Writes the host transport of a HIDL package from its interface files.

For a package (its .hal files) this writes:
  <Stem>.capnp      a Cap'n Proto schema: one struct per struct or safe union, and per method of
                    each interface a struct of its parameters and one of its results;
  <Stem>Wire.h/.cpp conversions between the generated HIDL C++ types and the schema's, a proxy
                    class per interface (an IFoo whose methods send calls over the host's
                    transport), a dispatch function per interface (an incoming call run on a local
                    IFoo) and a passthrough wrapper per interface.

It is the host's counterpart of hidl-gen's binder backend (BpHw/BnHw and the parcel code).
Enumerations cross as their underlying integers; interface objects as ids in the session's object
tables; handles cross with their descriptors beside the message (SCM_RIGHTS) and their ints in it,
fast-message-queue descriptors as their grantors and handle (base.capnp's NativeHandle and
QueueDescriptor).

usage: hal_to_capnp.py PACKAGE HAL_DIR IMPORT_DIR... -o OUT_DIR --stem STEM
"""
import argparse
import hashlib
import os
import re
import sys

PRIMITIVES = {
    'bool': 'Bool', 'int8_t': 'Int8', 'uint8_t': 'UInt8', 'int16_t': 'Int16',
    'uint16_t': 'UInt16', 'int32_t': 'Int32', 'uint32_t': 'UInt32', 'int64_t': 'Int64',
    'uint64_t': 'UInt64', 'float': 'Float32', 'double': 'Float64',
}

# ---------------------------------------------------------------------------------------------
# Parsing


def tokenize(text):
    text = re.sub(r'/\*.*?\*/', ' ', text, flags=re.S)
    text = re.sub(r'//[^\n]*', ' ', text)
    return re.findall(r'[A-Za-z_][A-Za-z0-9_]*|0x[0-9A-Fa-f]+|\d+|<<|::|[{}()<>\[\];,:=@.|&~+\-*]', text)


class Decl:
    def __init__(self, kind, name, scope):
        self.kind = kind            # enum, struct, union, typedef, interface
        self.name = name
        self.scope = scope          # enclosing Decl or None
        self.fields = []            # (name, typeref) for struct/union
        self.nested = {}
        self.underlying = None      # enum
        self.target = None          # typedef
        self.methods = []           # interface: (name, oneway, params, results)

    def path(self):
        return (self.scope.path() if self.scope else []) + [self.name]


class Parser:
    def __init__(self, tokens, package, decls):
        self.t = tokens
        self.i = 0
        self.package = package
        self.decls = decls          # top-level name -> Decl

    def peek(self, k=0):
        return self.t[self.i + k] if self.i + k < len(self.t) else None

    def take(self, expected=None):
        tok = self.t[self.i]
        if expected is not None and tok != expected:
            sys.exit('expected %r, found %r near token %d' % (expected, tok, self.i))
        self.i += 1
        return tok

    def parse_file(self):
        self.take('package')
        while self.take() != ';':
            pass
        while self.peek() is not None:
            if self.peek() == 'import':
                while self.take() != ';':
                    pass
                continue
            decl = self.parse_decl(None)
            self.decls[decl.name] = decl
            self.take(';')

    def parse_type(self):
        tok = self.take()
        if tok in ('vec', 'bitfield', 'fmq_sync'):
            self.take('<')
            inner = self.parse_type()
            self.take('>')
            ref = (tok, inner)
        elif tok in PRIMITIVES or tok in ('handle', 'string', 'death_recipient'):
            ref = (tok,)
        else:
            name = tok
            while self.peek() in ('.', '::'):
                self.take()
                name += '.' + self.take()
            ref = ('named', name)
        if self.peek() == '[':
            self.take('[')
            size = int(self.take())
            self.take(']')
            ref = ('array', ref, size)
        return ref

    def parse_decl(self, scope):
        kind = self.take()
        if kind == 'typedef':
            target = self.parse_type()
            decl = Decl('typedef', self.take(), scope)
            decl.target = target
            return decl
        if kind == 'enum':
            decl = Decl('enum', self.take(), scope)
            self.take(':')
            decl.underlying = self.parse_type()
            self.take('{')
            depth = 1
            while depth:
                tok = self.take()
                depth += tok == '{'
                depth -= tok == '}'
            return decl
        if kind in ('struct', 'safe_union'):
            decl = Decl('struct' if kind == 'struct' else 'union', self.take(), scope)
            self.take('{')
            while self.peek() != '}':
                if self.peek() in ('struct', 'safe_union', 'enum', 'typedef'):
                    nested = self.parse_decl(decl)
                    decl.nested[nested.name] = nested
                    if self.peek() != ';':     # declared and used as a field at once
                        decl.fields.append((self.take(), ('named', nested.name)))
                    self.take(';')
                    continue
                ref = self.parse_type()
                decl.fields.append((self.take(), ref))
                self.take(';')
            self.take('}')
            return decl
        if kind == 'interface':
            decl = Decl('interface', self.take(), scope)
            if self.peek() == 'extends':
                self.take()
                self.parse_type()
            self.take('{')
            while self.peek() != '}':
                oneway = self.peek() == 'oneway'
                if oneway:
                    self.take()
                name = self.take()
                params = self.parse_args()
                results = []
                if self.peek() == 'generates':
                    self.take()
                    results = self.parse_args()
                self.take(';')
                decl.methods.append((name, oneway, params, results))
            self.take('}')
            return decl
        sys.exit('unknown declaration %r' % kind)

    def parse_args(self):
        self.take('(')
        args = []
        while self.peek() != ')':
            ref = self.parse_type()
            args.append((self.take(), ref))
            if self.peek() == ',':
                self.take()
        self.take(')')
        return args


# ---------------------------------------------------------------------------------------------
# Names and type resolution


def cpp_namespace(package):
    name, version = package.split('@')
    major, minor = version.split('.')
    return '::' + '::'.join(name.split('.')) + '::V%s_%s' % (major, minor)


class Package:
    def __init__(self, package, decls, imported):
        self.package = package
        self.ns = cpp_namespace(package)
        self.decls = decls
        self.imported = imported    # name -> (namespace, Decl)

    def lookup(self, name, scope):
        parts = name.split('.')
        s = scope
        while s is not None:
            if parts[0] in s.nested:
                return self.walk(s.nested[parts[0]], parts[1:]), self.ns
            s = s.scope
        if parts[0] in self.decls:
            return self.walk(self.decls[parts[0]], parts[1:]), self.ns
        if parts[-1] in self.imported:
            ns, decl = self.imported[parts[-1]]
            return decl, ns
        sys.exit('unknown type %s' % name)

    @staticmethod
    def walk(decl, rest):
        for part in rest:
            decl = decl.nested[part]
        return decl

    def resolve(self, ref, scope):
        """Follows typedefs; returns (kind, ...) with named types as ('decl', Decl, ns)."""
        if ref[0] == 'named':
            decl, ns = self.lookup(ref[1], scope)
            if decl.kind == 'typedef':
                return self.resolve(decl.target, decl.scope)
            return ('decl', decl, ns)
        if ref[0] in ('vec', 'bitfield', 'fmq_sync'):
            return (ref[0], self.resolve(ref[1], scope))
        if ref[0] == 'array':
            return ('array', self.resolve(ref[1], scope), ref[2])
        return ref

    def cpp_type(self, r):
        if r[0] == 'decl':
            return r[2] + '::' + '::'.join(r[1].path())
        if r[0] == 'vec':
            return '::android::hardware::hidl_vec<%s>' % self.cpp_type(r[1])
        if r[0] == 'bitfield':
            return self.underlying_cpp(r[1])
        if r[0] == 'array':
            return '::android::hardware::hidl_array<%s, %d>' % (self.cpp_type(r[1]), r[2])
        if r[0] == 'string':
            return '::android::hardware::hidl_string'
        if r[0] == 'handle':
            return '::android::hardware::hidl_handle'
        if r[0] == 'fmq_sync':
            return '::android::hardware::MQDescriptorSync<%s>' % self.cpp_type(r[1])
        return r[0]

    def underlying_cpp(self, r):
        decl = r[1]
        return self.cpp_type(self.resolve(decl.underlying, decl.scope))


def wire_name(decl):
    return ''.join(decl.path())


def upper_snake(name):
    # Cap'n Proto's enumerant names for union members: an underscore before every capital.
    return ''.join('_' + c if c.isupper() else c.upper() for c in name)


def capitalised(name):
    return name[0].upper() + name[1:]


def is_primitive_like(r):
    return r[0] in PRIMITIVES or r[0] == 'bitfield' or (r[0] == 'decl' and r[1].kind == 'enum')


# ---------------------------------------------------------------------------------------------
# Schema


class SchemaWriter:
    def __init__(self, pkg):
        self.pkg = pkg
        self.out = []

    def wire_type(self, r):
        if r[0] in PRIMITIVES:
            return PRIMITIVES[r[0]]
        if r[0] == 'bitfield':
            return self.wire_type(self.pkg.resolve(r[1][1].underlying, r[1][1].scope))
        if r[0] == 'decl':
            d = r[1]
            if d.kind == 'enum':
                return self.wire_type(self.pkg.resolve(d.underlying, d.scope))
            if d.kind == 'struct' and not d.fields and r[2] != self.pkg.ns:
                return 'Void'           # Monostate
            return wire_name(d)
        if r[0] in ('vec', 'array'):
            return 'List(%s)' % self.wire_type(r[1])
        if r[0] == 'string':
            return 'Text'
        if r[0] == 'handle':
            return 'Base.NativeHandle'
        if r[0] == 'fmq_sync':
            return 'Base.QueueDescriptor'
        sys.exit('no wire form for %r' % (r,))

    def compound(self, decl):
        for nested in decl.nested.values():
            if nested.kind in ('struct', 'union'):
                self.compound(nested)
        self.out.append('struct %s {' % wire_name(decl))
        indent = '  '
        if decl.kind == 'union':
            self.out.append('  union {')
            indent = '    '
        for index, (name, ref) in enumerate(decl.fields):
            r = self.pkg.resolve(ref, decl)
            self.out.append('%s%s @%d :%s;' % (indent, name, index, self.wire_type(r)))
        if decl.kind == 'union':
            self.out.append('  }')
        self.out.append('}')
        self.out.append('')

    def interface(self, decl):
        for name, oneway, params, results in decl.methods:
            for suffix, args in (('Params', params), ('Results', results)):
                self.out.append('struct %s%s%s {' % (decl.name, capitalised(name), suffix))
                for index, (n, ref) in enumerate(args):
                    self.out.append('  %s @%d :%s;' % (n, index, self.arg_type(ref)))
                self.out.append('}')
                self.out.append('')

    def arg_type(self, ref):
        r = self.pkg.resolve(ref, None)
        if r[0] == 'decl' and r[1].kind == 'interface':
            return 'UInt64'             # the object's id in its session
        return self.wire_type(r)

    def write(self, stem):
        digest = hashlib.sha256(self.pkg.package.encode()).hexdigest()
        file_id = int(digest[:16], 16) | (1 << 63)
        self.out += ['@0x%x;' % file_id, '',
                     'using Cxx = import "/capnp/c++.capnp";',
                     '$Cxx.namespace("wire::%s");' % stem,
                     'using Base = import "/base.capnp";', '']
        for decl in self.pkg.decls.values():
            if decl.kind in ('struct', 'union'):
                self.compound(decl)
        for decl in self.pkg.decls.values():
            if decl.kind == 'interface':
                self.interface(decl)
        return '\n'.join(self.out) + '\n'


# ---------------------------------------------------------------------------------------------
# C++: conversions, proxies, stubs


class MethodShapes:
    """How hidl-gen declares an interface's methods in C++: for every writer of C++ that
    implements or wraps them. Needs `self.pkg`."""

    def iface_of(self, ref):
        r = self.pkg.resolve(ref, None)
        return r[1] if r[0] == 'decl' and r[1].kind == 'interface' else None

    def native_iface(self, decl):
        return self.pkg.ns + '::' + decl.name

    def elided(self, results):
        return len(results) == 1 and is_primitive_like(self.pkg.resolve(results[0][1], None))

    def param_decl(self, name, ref):
        iface = self.iface_of(ref)
        if iface:
            return 'const ::android::sp<%s>& %s' % (self.native_iface(iface), name)
        r = self.pkg.resolve(ref, None)
        if is_primitive_like(r):
            return '%s %s' % (self.pkg.cpp_type(r), name)
        return 'const %s& %s' % (self.pkg.cpp_type(r), name)

    def signature(self, native, name, params, results):
        """The C++ return type and parameters of a method, as hidl-gen declares it."""
        args = [self.param_decl(pn, pr) for pn, pr in params]
        if self.elided(results):
            r = self.pkg.resolve(results[0][1], None)
            return '::android::hardware::Return<%s>' % self.pkg.cpp_type(r), args
        if results:
            args.append('%s::%s_cb _hidl_cb' % (native, name))
        return '::android::hardware::Return<void>', args


class CppWriter(MethodShapes):
    def __init__(self, pkg, stem):
        self.pkg = pkg
        self.stem = stem
        self.wns = '::wire::' + stem

    def wtype(self, decl):
        return self.wns + '::' + wire_name(decl)

    def is_monostate(self, r):
        return r[0] == 'decl' and r[1].kind == 'struct' and not r[1].fields and r[2] != self.pkg.ns

    def scalar_to(self, r, expr):
        if r[0] == 'decl' and r[1].kind == 'enum':
            return 'static_cast<%s>(%s)' % (self.pkg.underlying_cpp(r), expr)
        return expr

    def scalar_from(self, r, expr):
        if r[0] == 'decl' and r[1].kind == 'enum':
            return 'static_cast<%s>(%s)' % (self.pkg.cpp_type(r), expr)
        return expr

    def write_value(self, r, expr, setter, initer, lines, ind, fds='fds'):
        """Writes native value `expr` into a builder field via setX/initX; `fds` is the
        OutgoingFds* a handle's descriptors go to."""
        if is_primitive_like(r):
            lines.append('%s%s(%s);' % (ind, setter, self.scalar_to(r, expr)))
        elif r[0] == 'string':
            lines.append('%s%s(::capnp::Text::Reader(%s.c_str(), %s.size()));' % (ind, setter, expr, expr))
        elif self.is_monostate(r):
            lines.append('%s%s();' % (ind, setter))
        elif r[0] == 'decl':
            lines.append('%stoWire(%s, %s(), %s);' % (ind, expr, initer, fds))
        elif r[0] == 'handle':
            lines.append('%sif (%s.getNativeHandle() != nullptr) {' % (ind, expr))
            lines.append('%s    ::android::hardware::details::writeHandle(%s, %s(), %s);' % (ind, expr, initer, fds))
            lines.append('%s}' % ind)
        elif r[0] == 'fmq_sync':
            lines.append('%s::android::hardware::details::writeQueue(%s, %s(), %s);' % (ind, expr, initer, fds))
        elif r[0] in ('vec', 'array'):
            lines.append('%s{' % ind)
            lines.append('%s    auto list = %s(static_cast<unsigned>(%s.size()));' % (ind, initer, expr))
            lines.append('%s    for (unsigned i = 0; i < list.size(); ++i) {' % ind)
            e = r[1]
            if is_primitive_like(e):
                lines.append('%s        list.set(i, %s);' % (ind, self.scalar_to(e, expr + '[i]')))
            elif e[0] == 'string':
                lines.append('%s        list.set(i, ::capnp::Text::Reader(%s[i].c_str(), %s[i].size()));' % (ind, expr, expr))
            elif e[0] == 'decl':
                lines.append('%s        toWire(%s[i], list[i], %s);' % (ind, expr, fds))
            else:
                sys.exit('no wire form for lists of %r' % (e,))
            lines.append('%s    }' % ind)
            lines.append('%s}' % ind)

    def read_value(self, r, reader, target, lines, ind, fds='fds'):
        """Reads reader expression into the native lvalue `target`; `fds` is the IncomingFds*
        a handle takes its descriptors from."""
        if is_primitive_like(r):
            lines.append('%s%s = %s;' % (ind, target, self.scalar_from(r, reader)))
        elif r[0] == 'string':
            lines.append('%s{ auto text = %s; %s = ::android::hardware::hidl_string(text.cStr(), text.size()); }' % (ind, reader, target))
        elif self.is_monostate(r):
            pass
        elif r[0] == 'decl':
            lines.append('%sfromWire(%s, %s, %s);' % (ind, reader, target, fds))
        elif r[0] == 'handle':
            has = re.sub(r'\.get(\w+)\(\)$', r'.has\1()', reader)
            if has == reader:
                sys.exit('a handle must be a field or an argument, not %s' % reader)
            lines.append('%sif (%s) ::android::hardware::details::readHandle(%s, %s, %s);' % (ind, has, reader, target, fds))
        elif r[0] == 'fmq_sync':
            lines.append('%s::android::hardware::details::readQueue(%s, %s, %s);' % (ind, reader, target, fds))
        elif r[0] in ('vec', 'array'):
            lines.append('%s{' % ind)
            lines.append('%s    auto list = %s;' % (ind, reader))
            if r[0] == 'vec':
                lines.append('%s    %s.resize(list.size());' % (ind, target))
                bound = 'list.size()'
            else:
                bound = 'std::min<size_t>(list.size(), %d)' % r[2]
            lines.append('%s    for (unsigned i = 0; i < %s; ++i) {' % (ind, bound))
            e = r[1]
            if is_primitive_like(e):
                lines.append('%s        %s[i] = %s;' % (ind, target, self.scalar_from(e, 'list[i]')))
            elif e[0] == 'string':
                lines.append('%s        %s[i] = ::android::hardware::hidl_string(list[i].cStr(), list[i].size());' % (ind, target))
            elif e[0] == 'decl':
                lines.append('%s        fromWire(list[i], %s[i], %s);' % (ind, target, fds))
            else:
                sys.exit('no wire form for lists of %r' % (e,))
            lines.append('%s    }' % ind)
            lines.append('%s}' % ind)

    def compounds(self, decl, out):
        for nested in decl.nested.values():
            if nested.kind in ('struct', 'union'):
                self.compounds(nested, out)
        out.append(decl)

    def conversions(self):
        decls = []
        for decl in self.pkg.decls.values():
            if decl.kind in ('struct', 'union'):
                self.compounds(decl, decls)
        header, source = [], []
        for d in decls:
            native = self.pkg.ns + '::' + '::'.join(d.path())
            # The descriptors of the handles within: where they go, where they come from (none
            # outside a call: handles then cross without their descriptors).
            header.append('void toWire(const %s& in, %s::Builder out,' % (native, self.wtype(d)))
            header.append('            ::android::hardware::details::OutgoingFds* fds = nullptr);')
            header.append('void fromWire(%s::Reader in, %s& out,' % (self.wtype(d), native))
            header.append('              ::android::hardware::details::IncomingFds* fds = nullptr);')
            to, fr = [], []
            if d.kind == 'struct':
                for name, ref in d.fields:
                    r = self.pkg.resolve(ref, d)
                    self.write_value(r, 'in.' + name, 'out.set' + capitalised(name),
                                     'out.init' + capitalised(name), to, '    ')
                    self.read_value(r, 'in.get%s()' % capitalised(name), 'out.' + name, fr, '    ')
            else:
                to.append('    switch (in.getDiscriminator()) {')
                fr.append('    switch (in.which()) {')
                for name, ref in d.fields:
                    r = self.pkg.resolve(ref, d)
                    to.append('        case %s::hidl_discriminator::%s:' % (native, name))
                    self.write_value(r, 'in.%s()' % name, 'out.set' + capitalised(name),
                                     'out.init' + capitalised(name), to, '            ')
                    to.append('            break;')
                    fr.append('        case %s::%s: {' % (self.wtype(d), upper_snake(name)))
                    fr.append('            %s value{};' % self.pkg.cpp_type(r))
                    self.read_value(r, 'in.get%s()' % capitalised(name), 'value', fr, '            ')
                    fr.append('            out.%s(std::move(value));' % name)
                    fr.append('            break;')
                    fr.append('        }')
                to.append('    }')
                fr.append('    }')
            source.append('void toWire(const %s& in, %s::Builder out,' % (native, self.wtype(d)))
            source.append('            ::android::hardware::details::OutgoingFds* fds) {')
            source.append('    (void)fds;')
            if not d.fields:
                source.append('    (void)in;\n    (void)out;')
            source += to
            source.append('}\n')
            source.append('void fromWire(%s::Reader in, %s& out,' % (self.wtype(d), native))
            source.append('              ::android::hardware::details::IncomingFds* fds) {')
            source.append('    (void)fds;')
            if not d.fields:
                source.append('    (void)in;\n    (void)out;')
            source += fr
            source.append('}\n')
        return header, source

    # -- interfaces --

    def holder_type(self, ref):
        iface = self.iface_of(ref)
        if iface:
            return '::android::sp<%s>' % self.native_iface(iface)
        return self.pkg.cpp_type(self.pkg.resolve(ref, None))

    def write_arg(self, name, ref, expr, builder, call, lines, ind):
        iface = self.iface_of(ref)
        if iface:
            lines.append('%s%s.set%s(%s.exportObject(%s, &%sDispatch));'
                         % (ind, builder, capitalised(name), call, expr, iface.name))
            return
        r = self.pkg.resolve(ref, None)
        self.write_value(r, expr, '%s.set%s' % (builder, capitalised(name)),
                         '%s.init%s' % (builder, capitalised(name)), lines, ind,
                         '%s.%s()' % (call, 'replyFds' if builder == 'results' else 'fds'))

    def read_arg(self, name, ref, reader, target, source, lines, ind):
        iface = self.iface_of(ref)
        if iface:
            lines.append('%s%s = %s.importObject<%s>(%s.get%s(), &%sMakeProxy);'
                         % (ind, target, source, self.native_iface(iface), reader,
                            capitalised(name), iface.name))
            return
        r = self.pkg.resolve(ref, None)
        self.read_value(r, '%s.get%s()' % (reader, capitalised(name)), target, lines, ind,
                        '%s.fds()' % source)

    def method_struct(self, decl, name, suffix):
        return '%s::%s%s%s' % (self.wns, decl.name, capitalised(name), suffix)

    def proxy(self, decl):
        n = self.native_iface(decl)
        h = ['class %sProxy final : public ::android::hardware::details::ProxyBase<%s> {' % (decl.name, n),
             '  public:',
             '    using ProxyBase::ProxyBase;']
        c = []
        for index, (name, oneway, params, results) in enumerate(decl.methods):
            rtype, args = self.signature(n, name, params, results)
            h.append('    %s %s(%s) override;' % (rtype, name, ', '.join(args)))
            c.append('%s %sProxy::%s(%s) {' % (rtype, decl.name, name, ', '.join(args)))
            c.append('    ::android::hardware::details::OutgoingCall _hidl_call(session(), remoteId(), %d);' % index)
            if params:
                c.append('    {')
                c.append('        auto params = _hidl_call.params<%s>();' % self.method_struct(decl, name, 'Params'))
                for pn, pr in params:
                    self.write_arg(pn, pr, pn, 'params', '_hidl_call', c, '        ')
                c.append('    }')
            if oneway:
                c.append('    return _hidl_call.sendOneway();')
                c.append('}\n')
                continue
            for i, (rn, rr) in enumerate(results):
                c.append('    %s out%d{};' % (self.holder_type(rr), i))
            if results:
                c.append('    ::android::hardware::Status _hidl_status = _hidl_call.transact([&](::android::hardware::details::IncomingReply& reply) {')
                c.append('        auto results = reply.results<%s>();' % self.method_struct(decl, name, 'Results'))
                for i, (rn, rr) in enumerate(results):
                    self.read_arg(rn, rr, 'results', 'out%d' % i, 'reply', c, '        ')
                c.append('    });')
            else:
                c.append('    ::android::hardware::Status _hidl_status = _hidl_call.transact();')
            c.append('    if (!_hidl_status.isOk()) return _hidl_status;')
            if self.elided(results):
                c.append('    return out0;')
            else:
                if results:
                    c.append('    _hidl_cb(%s);' % ', '.join('out%d' % i for i in range(len(results))))
                c.append('    return ::android::hardware::Void();')
            c.append('}\n')
        h.append('};\n')
        c.append('::android::sp<::android::hidl::base::V1_0::IBase> %sMakeProxy(' % decl.name)
        c.append('        const std::shared_ptr<::android::hardware::details::Session>& session, uint64_t id) {')
        c.append('    return new %sProxy(session, id);' % decl.name)
        c.append('}\n')
        return h, c

    def stub(self, decl):
        """The dispatch of an incoming call to a local object: parameters read in place, the
        method run, its results written in place."""
        n = self.native_iface(decl)
        c = ['::android::hardware::Status %sDispatch(const ::android::sp<::android::hidl::base::V1_0::IBase>& _hidl_object,' % decl.name,
             '                                      ::android::hardware::details::IncomingCall& _hidl_call) {',
             '    auto* _hidl_impl = static_cast<%s*>(_hidl_object.get());' % n,
             '    switch (_hidl_call.method()) {']
        for index, (name, oneway, params, results) in enumerate(decl.methods):
            c.append('        case %d: {  // %s' % (index, name))
            ind = '            '
            for pn, pr in params:
                c.append('%s%s %s{};' % (ind, self.holder_type(pr), pn))
            if params:
                c.append('%s{' % ind)
                c.append('%s    auto params = _hidl_call.params<%s>();' % (ind, self.method_struct(decl, name, 'Params')))
                for pn, pr in params:
                    self.read_arg(pn, pr, 'params', pn, '_hidl_call', c, ind + '    ')
                c.append('%s}' % ind)
                c.append('%sif (_hidl_call.malformed()) {' % ind)
                c.append('%s    return ::android::hardware::Status::fromStatusT(::android::BAD_VALUE);' % ind)
                c.append('%s}' % ind)
            argnames = ', '.join(pn for pn, _ in params)
            rstruct = self.method_struct(decl, name, 'Results')
            if oneway or not results:
                c.append('%sreturn ::android::hardware::details::toStatus(_hidl_impl->%s(%s));' % (ind, name, argnames))
            elif self.elided(results):
                rn, rr = results[0]
                c.append('%sauto _hidl_ret = _hidl_impl->%s(%s);' % (ind, name, argnames))
                c.append('%sif (_hidl_ret.isOk()) {' % ind)
                c.append('%s    auto results = _hidl_call.results<%s>();' % (ind, rstruct))
                r = self.pkg.resolve(rr, None)
                c.append('%s    results.set%s(%s);' % (ind, capitalised(rn), self.scalar_to(r, '_hidl_ret.withDefault({})')))
                c.append('%s}' % ind)
                c.append('%sreturn ::android::hardware::details::toStatus(_hidl_ret);' % ind)
            else:
                cbargs = ', '.join('%s r%d' % (self.param_decl('', rr).strip(), i) for i, (rn, rr) in enumerate(results))
                sep = ', ' if argnames else ''
                c.append('%sreturn ::android::hardware::details::toStatus(_hidl_impl->%s(%s%s[&](%s) {' % (ind, name, argnames, sep, cbargs))
                c.append('%s    auto results = _hidl_call.results<%s>();' % (ind, rstruct))
                for i, (rn, rr) in enumerate(results):
                    self.write_arg(rn, rr, 'r%d' % i, 'results', '_hidl_call', c, ind + '    ')
                c.append('%s}));' % ind)
            c.append('        }')
        c.append('        default:')
        c.append('            return ::android::hardware::Status::fromExceptionCode(')
        c.append('                    ::android::hardware::Status::EX_UNSUPPORTED_OPERATION, "unknown method");')
        c.append('    }')
        c.append('}\n')
        return c

    def wrap_expr(self, ref, expr):
        iface = self.iface_of(ref)
        if iface:
            return '::android::hardware::details::wrapPassthrough(%s)' % expr
        return expr

    def passthrough(self, decl):
        """An IFoo in front of a local object, as HIDL's passthrough mode has: oneway methods are
        queued and run on the RPC pool in order, interface objects crossing are wrapped too."""
        n = self.native_iface(decl)
        cls = decl.name + 'Passthrough'
        h = ['class %s final : public ::android::hardware::details::PassthroughBase<%s> {' % (cls, n),
             '  public:',
             '    using PassthroughBase::PassthroughBase;']
        c = []
        for name, oneway, params, results in decl.methods:
            rtype, args = self.signature(n, name, params, results)
            h.append('    %s %s(%s) override;' % (rtype, name, ', '.join(args)))
            c.append('%s %s::%s(%s) {' % (rtype, cls, name, ', '.join(args)))
            call_args = [self.wrap_expr(pr, pn) for pn, pr in params]
            if oneway:
                captures = ', '.join(['impl = impl()'] + ['%s = %s' % (pn, self.wrap_expr(pr, pn)) for pn, pr in params])
                c.append('    post([%s]() { impl->%s(%s).isOkUnchecked(); });' % (captures, name, ', '.join(pn for pn, _ in params)))
                c.append('    return ::android::hardware::Void();')
            elif not results or self.elided(results):
                c.append('    return impl()->%s(%s);' % (name, ', '.join(call_args)))
            else:
                cbargs = ', '.join('%s r%d' % (self.param_decl('', rr).strip(), i) for i, (rn, rr) in enumerate(results))
                fwd = ', '.join(self.wrap_expr(rr, 'r%d' % i) for i, (rn, rr) in enumerate(results))
                sep = ', ' if call_args else ''
                c.append('    return impl()->%s(%s%s[&](%s) { _hidl_cb(%s); });' % (name, ', '.join(call_args), sep, cbargs, fwd))
            c.append('}\n')
        h.append('};\n')
        return h, c

    def write(self, header_name, schema_header):
        conv_h, conv_c = self.conversions()
        ifaces = [d for d in self.pkg.decls.values() if d.kind == 'interface']
        h = ['// Written by hal_to_capnp.py from the interface files of %s.' % self.pkg.package,
             '#pragma once', '',
             '#include <hidl/transport/Passthrough.h>',
             '#include <hidl/transport/ProxyStub.h>',
             '#include "%s"' % schema_header, '']
        for d in ifaces:
            h.append('#include <%s/%s.h>' % (self.pkg.package.split('@')[0].replace('.', '/') + '/' + self.pkg.package.split('@')[1], d.name))
        h.append('')
        h.append('namespace wire {\nnamespace %s {\n' % self.stem)
        h += conv_h
        h.append('')
        c = ['// Written by hal_to_capnp.py from the interface files of %s.' % self.pkg.package,
             '#include "%s"' % header_name, '', '#include <algorithm>', '',
             'namespace wire {\nnamespace %s {\n' % self.stem]
        c += conv_c
        for d in ifaces:
            h.append('// The numbers the methods of %s cross as.' % d.name)
            h.append('namespace %sMethod {' % d.name)
            for index, (name, oneway, params, results) in enumerate(d.methods):
                h.append('constexpr uint16_t %s = %d;' % (name, index))
            h.append('}  // namespace %sMethod' % d.name)
        h.append('')
        for d in ifaces:
            n = self.native_iface(d)
            h.append('::android::hardware::Status %sDispatch(const ::android::sp<::android::hidl::base::V1_0::IBase>& object,' % d.name)
            h.append('                                      ::android::hardware::details::IncomingCall& call);')
            h.append('::android::sp<::android::hidl::base::V1_0::IBase> %sMakeProxy(' % d.name)
            h.append('        const std::shared_ptr<::android::hardware::details::Session>& session, uint64_t id);')
            h.append('class %sPassthrough;' % d.name)
        h.append('')
        for d in ifaces:
            ph, pc = self.proxy(d)
            sc = self.stub(d)
            bh, bc = self.passthrough(d)
            h += ph + bh
            c += pc + sc + bc
        fn = 'register%sTransport' % capitalised(self.stem)
        h.append('// Lets every interface of the package cross processes.')
        h.append('void %s();\n' % fn)
        c.append('void %s() {' % fn)
        for d in ifaces:
            n = self.native_iface(d)
            c.append('    ::android::hardware::details::registerInterfaceTransport(')
            c.append('            %s::descriptor,' % n)
            c.append('            {&%sDispatch, &%sMakeProxy,' % (d.name, d.name))
            c.append('             [](const ::android::sp<::android::hidl::base::V1_0::IBase>& object)')
            c.append('                     -> ::android::sp<::android::hidl::base::V1_0::IBase> {')
            c.append('                 return new %sPassthrough(::android::sp<%s>(dynamic_cast<%s*>(object.get())));' % (d.name, n, n))
            c.append('             }});')
        c.append('}\n')
        h.append('}  // namespace %s\n}  // namespace wire' % self.stem)
        c.append('}  // namespace %s\n}  // namespace wire' % self.stem)
        return '\n'.join(h) + '\n', '\n'.join(c) + '\n'


def load(package, hal_dir, decls):
    for name in sorted(os.listdir(hal_dir)):
        if name.endswith('.hal'):
            with open(os.path.join(hal_dir, name)) as f:
                Parser(tokenize(f.read()), package, decls).parse_file()


def arguments():
    """The command line both generators take: a package, its directory, what it imports."""
    ap = argparse.ArgumentParser()
    ap.add_argument('package')
    ap.add_argument('hal_dir')
    ap.add_argument('--import-package', nargs=2, action='append', default=[],
                    metavar=('PACKAGE', 'DIR'))
    ap.add_argument('-o', dest='out', required=True)
    ap.add_argument('--stem', required=True)
    return ap


def load_package(args):
    imported = {}
    for package, directory in args.import_package:
        decls = {}
        load(package, directory, decls)
        for name, decl in decls.items():
            imported[name] = (cpp_namespace(package), decl)
    decls = {}
    load(args.package, args.hal_dir, decls)
    return Package(args.package, decls, imported)


def main():
    args = arguments().parse_args()
    pkg = load_package(args)

    os.makedirs(args.out, exist_ok=True)
    schema = args.stem + '.capnp'
    with open(os.path.join(args.out, schema), 'w') as f:
        f.write(SchemaWriter(pkg).write(args.stem))
    header, source = CppWriter(pkg, args.stem).write(args.stem + 'Wire.h', schema + '.h')
    with open(os.path.join(args.out, args.stem + 'Wire.h'), 'w') as f:
        f.write(header)
    with open(os.path.join(args.out, args.stem + 'Wire.cpp'), 'w') as f:
        f.write(source)


if __name__ == '__main__':
    main()

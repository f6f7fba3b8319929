#!/usr/bin/env python3
"""Writes the interface side of a session trace from a HIDL package's interface files.

  <Stem>Trace.h/.cpp      JSON of every struct and safe union of the package (no library, so a
                          device build carries it), and per recorded interface a recording
                          wrapper: an IFoo in front of the service's (or the client's) object
                          that writes each call, its return and each oneway callback to the trace.
  <Stem>TraceRead.h/.cpp  the way back, for a replay on the host: every type from JSON
                          (nlohmann::json), and per recorded interface a call from a trace record,
                          with quiet stand-ins for the client's callback objects.

Interfaces that a client hands in (callbacks) are wrapped with the number of the object they were
handed to; interfaces the service hands out are numbered once per object.

usage: hal_to_trace.py PACKAGE HAL_DIR --import-package PKG DIR -o OUT --stem STEM
                       --record IFoo,IBar,...
"""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)),
                                '..', 'host', 'platform', 'transport'))
import hal_to_capnp as hal  # noqa: E402  (the same parser the transport's generator uses)

INTS = {'int8_t', 'int16_t', 'int32_t', 'int64_t'}
UINTS = {'uint8_t', 'uint16_t', 'uint32_t', 'uint64_t'}


class Writer(hal.MethodShapes):
    def __init__(self, pkg, stem, recorded):
        self.pkg = pkg
        self.stem = stem
        self.recorded = recorded
        self.ifaces = {d.name: d for d in pkg.decls.values() if d.kind == 'interface'}

    def native(self, decl):
        return self.pkg.ns + '::' + '::'.join(decl.path())

    def compounds(self):
        out = []

        def visit(decl):
            for nested in decl.nested.values():
                visit(nested)
            if decl.kind in ('struct', 'union'):
                out.append(decl)
        for decl in self.pkg.decls.values():
            visit(decl)
        return out

    def is_empty_struct(self, r):
        return r[0] == 'decl' and r[1].kind == 'struct' and not r[1].fields

    # -- values to JSON --

    def write_value(self, r, expr, lines, ind, depth=0, out='out'):
        k = r[0]
        lines_start = len(lines)
        if k == 'bool':
            lines.append('%sout += (%s) ? "true" : "false";' % (ind, expr))
        elif k in INTS:
            lines.append('%s::mox::trace::appendNumber(out, static_cast<int64_t>(%s));' % (ind, expr))
        elif k in UINTS or k == 'bitfield':
            lines.append('%s::mox::trace::appendUnsigned(out, static_cast<uint64_t>(%s));' % (ind, expr))
        elif k in ('float', 'double'):
            lines.append('%s::mox::trace::appendNumber(out, %s);' % (ind, expr))
        elif k == 'string':
            lines.append('%s::mox::trace::appendQuoted(out, %s.c_str(), %s.size());' % (ind, expr, expr))
        elif k in ('handle', 'fmq_sync'):
            lines.append('%sout += "null";  // handles are not recorded' % ind)
        elif k == 'decl' and r[1].kind == 'enum':
            lines.append('%s::mox::trace::appendQuoted(out, %s::toString(%s));' % (ind, r[2], expr))
        elif self.is_empty_struct(r):
            lines.append('%sout += "{}";' % ind)
        elif k == 'decl':
            lines.append('%stoJson(out, %s);' % (ind, expr))
        elif k in ('vec', 'array'):
            i = 'i%d' % depth
            lines.append("%sout += '[';" % ind)
            lines.append('%sfor (size_t %s = 0; %s < %s.size(); ++%s) {' % (ind, i, i, expr, i))
            lines.append("%s    if (%s != 0) out += ',';" % (ind, i))
            self.write_value(r[1], '%s[%s]' % (expr, i), lines, ind + '    ', depth + 1)
            lines.append('%s}' % ind)
            lines.append("%sout += ']';" % ind)
        else:
            sys.exit('no JSON for %r' % (r,))
        if out != 'out':
            for j in range(lines_start, len(lines)):
                lines[j] = lines[j].replace('(out, ', '(%s, ' % out).replace(
                    '%sout +=' % ind, '%s%s +=' % (ind, out)).replace(' out +=', ' %s +=' % out)

    def to_json(self):
        header, source = [], []
        for d in self.compounds():
            n = self.native(d)
            header.append('void toJson(std::string& out, const %s& in);' % n)
            body = []
            if d.kind == 'struct':
                for i, (name, ref) in enumerate(d.fields):
                    body.append('    out += "%s\\"%s\\":";' % ('{' if i == 0 else ',', name))
                    self.write_value(self.pkg.resolve(ref, d), 'in.' + name, body, '    ')
                body.append("    out += '}';" if d.fields else '    out += "{}";')
            else:
                body.append('    switch (in.getDiscriminator()) {')
                for name, ref in d.fields:
                    body.append('        case %s::hidl_discriminator::%s:' % (n, name))
                    body.append('            out += "{\\"%s\\":";' % name)
                    self.write_value(self.pkg.resolve(ref, d), 'in.%s()' % name, body, '            ')
                    body.append('            break;')
                body.append('    }')
                body.append("    out += '}';")
            source.append('void toJson(std::string& out, const %s& in) {' % n)
            if not d.fields:
                source.append('    (void)in;')
            source += body
            source.append('}\n')
        return header, source

    # -- JSON to values --

    def read_value(self, r, src, target, lines, ind, depth=0):
        k = r[0]
        fail = 'return false;'
        if k in ('handle', 'fmq_sync'):
            lines.append('%s(void)%s;  // handles are not recorded' % (ind, src))
        elif self.is_empty_struct(r):
            lines.append('%sif (!%s.is_object()) return ::mox::trace::fail(error, "an object");' % (ind, src))
        elif k == 'decl' and r[1].kind in ('struct', 'union'):
            lines.append('%sif (!fromJson(%s, %s, error)) %s' % (ind, src, target, fail))
        elif k in ('vec', 'array'):
            i = 'i%d' % depth
            lines.append('%sif (!%s.is_array()) return ::mox::trace::fail(error, "an array");' % (ind, src))
            if k == 'vec':
                lines.append('%s%s.resize(%s.size());' % (ind, target, src))
            else:
                lines.append('%sif (%s.size() != %d) return ::mox::trace::fail(error, "%d elements");' % (ind, src, r[2], r[2]))
            lines.append('%sfor (size_t %s = 0; %s < %s.size(); ++%s) {' % (ind, i, i, src, i))
            self.read_value(r[1], '%s[%s]' % (src, i), '%s[%s]' % (target, i), lines, ind + '    ', depth + 1)
            lines.append('%s}' % ind)
        else:
            lines.append('%sif (!::mox::trace::readScalar(%s, %s, error)) %s' % (ind, src, target, fail))

    def from_json(self):
        header, source = [], []
        for d in self.compounds():
            n = self.native(d)
            header.append('bool fromJson(const nlohmann::json& in, %s& out, std::string& error);' % n)
            body = ['    if (!in.is_object()) return ::mox::trace::fail(error, "an object");']
            if d.kind == 'struct':
                for name, ref in d.fields:
                    r = self.pkg.resolve(ref, d)
                    body.append('    {')
                    body.append('        const auto member = in.find("%s");' % name)
                    body.append('        if (member == in.end()) return ::mox::trace::missing(error, "%s");' % name)
                    inner = []
                    self.read_value(r, '(*member)', 'out.' + name, inner, '        ')
                    body += [l.replace('return false;', 'return ::mox::trace::within(error, "%s");' % name) for l in inner]
                    body.append('    }')
            else:
                body.append('    if (in.size() != 1) return ::mox::trace::fail(error, "one alternative");')
                body.append('    const std::string& which = in.begin().key();')
                body.append('    const nlohmann::json& value = in.begin().value();')
                for name, ref in d.fields:
                    r = self.pkg.resolve(ref, d)
                    body.append('    if (which == "%s") {' % name)
                    body.append('        %s alternative{};' % self.pkg.cpp_type(r))
                    inner = []
                    self.read_value(r, 'value', 'alternative', inner, '        ')
                    body += [l.replace('return false;', 'return ::mox::trace::within(error, "%s");' % name) for l in inner]
                    body.append('        out.%s(std::move(alternative));' % name)
                    body.append('        return true;')
                    body.append('    }')
                body.append('    return ::mox::trace::fail(error, "a known alternative, not \\"" + which + "\\"");')
            source.append('bool fromJson(const nlohmann::json& in, %s& out, std::string& error) {' % n)
            source += body
            if d.kind == 'struct':
                source.append('    return true;')
            source.append('}\n')
        return header, source

    # -- interfaces --

    def record_members(self, pairs, buffer, lines, ind, wrapped):
        """Writes "name":value members for (name, ref, expr) into `buffer`."""
        for i, (name, ref, expr) in enumerate(pairs):
            lines.append('%s%s += "%s\\"%s\\":";' % (ind, buffer, ',' if i else '', name))
            iface = self.iface_of(ref)
            if iface:
                if iface.name in self.recorded and wrapped.get(name) == 'numbered':
                    lines.append('%s::mox::trace::appendObject(%s, %s);' % (ind, buffer, expr))
                else:
                    lines.append('%s::mox::trace::appendInterface(%s, %s, "%s");' % (ind, buffer, expr, iface.name))
                continue
            self.write_value(self.pkg.resolve(ref, None), expr, lines, ind, out=buffer)

    def recording_class(self, decl):
        n = self.native(decl)
        cls = 'Recording' + decl.name[1:]
        h = ['class %s final : public %s, public ::mox::trace::RecordedObject {' % (cls, n),
             '  public:',
             '    %s(const ::android::sp<%s>& inner, uint32_t object)' % (cls, n),
             '        : RecordedObject(object), mInner(inner) {}',
             '    static ::android::sp<%s> wrap(const ::android::sp<%s>& inner, uint32_t owner);' % (n, n)]
        c = ['::android::sp<%s> %s::wrap(const ::android::sp<%s>& inner, uint32_t owner) {' % (n, cls, n),
             '    if (inner == nullptr) return nullptr;',
             '    return ::mox::trace::numberedWrapper<%s, %s>(inner, owner);' % (cls, n),
             '}\n']
        for name, oneway, params, results in decl.methods:
            rtype, args = self.signature(self.native(decl), name, params, results)
            h.append('    %s %s(%s) override;' % (rtype, name, ', '.join(args)))
            c.append('%s %s::%s(%s) {' % (rtype, cls, name, ', '.join(args)))
            method = '%s.%s' % (decl.name, name)
            call_args = []
            for pn, pr in params:
                iface = self.iface_of(pr)
                if iface and iface.name in self.recorded:
                    c.append('    const ::android::sp<%s> %sRecorded = Recording%s::wrap(%s, number());'
                             % (self.native(iface), pn, iface.name[1:], pn))
                    call_args.append(pn + 'Recorded')
                else:
                    call_args.append(pn)
            if oneway:
                c.append('    if (::mox::trace::activeSink() != nullptr) {')
                c.append('        std::string args;')
                self.record_members([(pn, pr, pn) for pn, pr in params], 'args', c, '        ', {})
                c.append('        ::mox::trace::recordCallback(number(), "%s", std::move(args));' % method)
                c.append('    }')
                c.append('    return mInner->%s(%s);' % (name, ', '.join(call_args)))
                c.append('}\n')
                continue
            c.append('    ::mox::trace::InterfaceCall call(number(), "%s");' % method)
            c.append('    if (call.active()) {')
            self.record_members([(pn, pr, pn) for pn, pr in params], 'call.args()', c, '        ', {})
            c.append('    }')
            c.append('    call.started();')
            if not results or self.elided(results):
                c.append('    auto ret = mInner->%s(%s);' % (name, ', '.join(call_args)))
                if results:
                    rn, rr = results[0]
                    c.append('    if (call.active() && ret.isOk()) {')
                    self.record_members([(rn, rr, 'static_cast<%s>(ret)' % self.pkg.cpp_type(self.pkg.resolve(rr, None)))],
                                        'call.results()', c, '        ', {})
                    c.append('    }')
                c.append('    call.returned(ret.isOk());')
                c.append('    return ret;')
            else:
                cbargs = ', '.join(self.param_decl('r%d' % i, rr) for i, (rn, rr) in enumerate(results))
                sep = ', ' if call_args else ''
                c.append('    auto ret = mInner->%s(%s%s[&](%s) {' % (name, ', '.join(call_args), sep, cbargs))
                fwd = []
                wrapped = {}
                for i, (rn, rr) in enumerate(results):
                    iface = self.iface_of(rr)
                    if iface and iface.name in self.recorded:
                        c.append('        const ::android::sp<%s> w%d = Recording%s::wrap(r%d, 0);'
                                 % (self.native(iface), i, iface.name[1:], i))
                        fwd.append('w%d' % i)
                        wrapped[rn] = 'numbered'
                    else:
                        fwd.append('r%d' % i)
                c.append('        if (call.active()) {')
                self.record_members([(rn, rr, fwd[i]) for i, (rn, rr) in enumerate(results)],
                                    'call.results()', c, '            ', wrapped)
                c.append('        }')
                c.append('        _hidl_cb(%s);' % ', '.join(fwd))
                c.append('    });')
                c.append('    call.returned(ret.isOk());')
                c.append('    return ret;')
            c.append('}\n')
        # What a dump or a debugger asks of the object goes to the object itself.
        h.append('    ::android::hardware::Return<void> debug(const ::android::hardware::hidl_handle& fd,')
        h.append('            const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options) override {')
        h.append('        return mInner->debug(fd, options);')
        h.append('    }')
        h.append('    ::android::hardware::Return<void> getDebugInfo(getDebugInfo_cb _hidl_cb) override {')
        h.append('        return mInner->getDebugInfo(_hidl_cb);')
        h.append('    }')
        h.append('')
        h.append('  private:')
        h.append('    const ::android::sp<%s> mInner;' % n)
        h.append('};\n')
        return h, c

    def includes(self):
        base = self.pkg.package.split('@')[0].replace('.', '/') + '/' + self.pkg.package.split('@')[1]
        return ['#include <%s/%s.h>' % (base, name) for name in sorted(self.ifaces)]

    def write_recording(self, header_name):
        jh, jc = self.to_json()
        h = ['// Written by hal_to_trace.py from the interface files of %s.' % self.pkg.package,
             '#pragma once', '', '#include <string>', ''] + self.includes() + [
             '', '#include "recorder/InterfaceRecording.h"', '',
             'namespace mox::trace::%s {\n' % self.stem] + jh + ['']
        c = ['// Written by hal_to_trace.py from the interface files of %s.' % self.pkg.package,
             '#include "%s"' % header_name, '', '#include "recorder/JsonText.h"', '',
             'namespace mox::trace::%s {\n' % self.stem] + jc
        for name in self.recorded:
            ch, cc = self.recording_class(self.ifaces[name])
            h += ch
            c += cc
        h.append('}  // namespace mox::trace::%s' % self.stem)
        c.append('}  // namespace mox::trace::%s' % self.stem)
        return '\n'.join(h) + '\n', '\n'.join(c) + '\n'

    # -- replay side --

    def quiet_class(self, decl):
        """A client object that takes every call and does nothing: a replay's callback."""
        n = self.native(decl)
        cls = 'Quiet' + decl.name[1:]
        lines = ['class %s final : public %s {' % (cls, n), '  public:']
        for name, oneway, params, results in decl.methods:
            rtype, args = self.signature(self.native(decl), name, params, results)
            lines.append('    %s %s(%s) override {' % (rtype, name, ', '.join(args)))
            for pn, _ in params:
                lines.append('        (void)%s;' % pn)
            lines.append('        return ::android::hardware::Void();')
            lines.append('    }')
        lines.append('};\n')
        return lines

    def quiet_possible(self, decl):
        return all(not results for _, _, _, results in decl.methods)

    def invoker(self, decl):
        n = self.native(decl)
        lines = ['bool invoke%s(%s* object, const std::string& method, const nlohmann::json& args,' % (decl.name[1:], n),
                 '        bool run, std::vector<::android::sp<::android::hidl::base::V1_0::IBase>>& keep,',
                 '        std::string& error) {',
                 '    (void)object;', '    (void)keep;', '    (void)run;']
        for name, oneway, params, results in decl.methods:
            if oneway:
                continue
            lines.append('    if (method == "%s") {' % name)
            call_args = []
            for pn, pr in params:
                iface = self.iface_of(pr)
                lines.append('        const auto %sJson = args.find("%s");' % (pn, pn))
                lines.append('        if (%sJson == args.end()) return ::mox::trace::missing(error, "%s");' % (pn, pn))
                if iface:
                    holder = '::android::sp<%s>' % self.native(iface)
                    quiet = iface.name in self.recorded and self.quiet_possible(iface)
                    make = 'new Quiet%s()' % iface.name[1:] if quiet else 'nullptr'
                    lines.append('        const %s %s = %sJson->is_null() ? nullptr : %s(%s);' % (holder, pn, pn, holder, make))
                else:
                    r = self.pkg.resolve(pr, None)
                    lines.append('        %s %s{};' % (self.pkg.cpp_type(r), pn))
                    inner = []
                    self.read_value(r, '(*%sJson)' % pn, pn, inner, '        ')
                    lines += [l.replace('return false;', 'return ::mox::trace::within(error, "%s");' % pn) for l in inner]
                call_args.append(pn)
            lines.append('        if (!run) return true;')
            if not results or self.elided(results):
                lines.append('        object->%s(%s).isOk();' % (name, ', '.join(call_args)))
            else:
                cbargs = ', '.join(self.param_decl('r%d' % i, rr) for i, (rn, rr) in enumerate(results))
                keeps = ['keep.push_back(r%d);' % i for i, (rn, rr) in enumerate(results) if self.iface_of(rr)]
                unused = ['(void)r%d;' % i for i, (rn, rr) in enumerate(results) if not self.iface_of(rr)]
                sep = ', ' if call_args else ''
                lines.append('        object->%s(%s%s[&](%s) { %s }).isOk();'
                             % (name, ', '.join(call_args), sep, cbargs, ' '.join(unused + keeps)))
            lines.append('        return true;')
            lines.append('    }')
        lines.append('    return ::mox::trace::fail(error, "a method of %s, not \\"" + method + "\\"");' % decl.name)
        lines.append('}\n')
        return lines

    def write_reading(self, header_name, recording_header):
        fh, fc = self.from_json()
        h = ['// Written by hal_to_trace.py from the interface files of %s.' % self.pkg.package,
             '#pragma once', '', '#include <nlohmann/json.hpp>', '', '#include <string>', '#include <vector>', '',
             '#include "%s"' % recording_header, '',
             'namespace mox::trace::%s {\n' % self.stem] + fh + [
             '',
             '// Runs the recorded call `method` ("IFrontend.tune") on object with the recorded arguments;',
             '// with run false it only checks that the arguments read. Interface objects the call hands',
             '// out are kept in keep; a callback argument is a quiet stand-in.',
             'bool invoke(const ::android::sp<::android::hidl::base::V1_0::IBase>& object,',
             '            const std::string& method, const nlohmann::json& args, bool run,',
             '            std::vector<::android::sp<::android::hidl::base::V1_0::IBase>>& keep,',
             '            std::string& error);',
             '// True for a method of a recorded interface, callbacks included.',
             'bool knownMethod(const std::string& method);',
             '', '}  // namespace mox::trace::%s' % self.stem]
        c = ['// Written by hal_to_trace.py from the interface files of %s.' % self.pkg.package,
             '#include "%s"' % header_name, '', '#include "replay/JsonScalars.h"', '',
             'namespace mox::trace::%s {\n' % self.stem] + fc
        c.append('namespace {\n')
        for name in self.recorded:
            d = self.ifaces[name]
            if self.quiet_possible(d):
                c += self.quiet_class(d)
        for name in self.recorded:
            if not all(oneway for _, oneway, _, _ in self.ifaces[name].methods):
                c += self.invoker(self.ifaces[name])
        c.append('}  // namespace\n')
        c += ['bool invoke(const ::android::sp<::android::hidl::base::V1_0::IBase>& object,',
              '            const std::string& method, const nlohmann::json& args, bool run,',
              '            std::vector<::android::sp<::android::hidl::base::V1_0::IBase>>& keep,',
              '            std::string& error) {',
              "    const size_t dot = method.find('.');",
              '    const std::string interface = method.substr(0, dot);',
              '    const std::string name = dot == std::string::npos ? std::string() : method.substr(dot + 1);']
        for name in self.recorded:
            d = self.ifaces[name]
            if all(oneway for _, oneway, _, _ in d.methods):
                continue
            c.append('    if (interface == "%s") {' % name)
            c.append('        auto* typed = dynamic_cast<%s*>(object.get());' % self.native(d))
            c.append('        if (run && typed == nullptr) return ::mox::trace::fail(error, "a %s object");' % name)
            c.append('        return invoke%s(typed, name, args, run, keep, error);' % name[1:])
            c.append('    }')
        c.append('    return ::mox::trace::fail(error, "a recorded interface, not \\"" + interface + "\\"");')
        c.append('}\n')
        c.append('bool knownMethod(const std::string& method) {')
        c.append('    static const char* const kMethods[] = {')
        for name in self.recorded:
            for m, oneway, _, _ in self.ifaces[name].methods:
                c.append('        "%s.%s",' % (name, m))
        c.append('    };')
        c.append('    for (const char* known : kMethods) {')
        c.append('        if (method == known) return true;')
        c.append('    }')
        c.append('    return false;')
        c.append('}\n')
        c.append('}  // namespace mox::trace::%s' % self.stem)
        return '\n'.join(h) + '\n', '\n'.join(c) + '\n'


def main():
    ap = hal.arguments()
    ap.add_argument('--record', required=True)
    args = ap.parse_args()
    pkg = hal.load_package(args)
    writer = Writer(pkg, args.stem, args.record.split(','))

    os.makedirs(args.out, exist_ok=True)
    rec_h = args.stem + 'Trace.h'
    read_h = args.stem + 'TraceRead.h'
    outputs = dict(zip([rec_h, args.stem + 'Trace.cpp'], writer.write_recording(rec_h)))
    outputs.update(zip([read_h, args.stem + 'TraceRead.cpp'], writer.write_reading(read_h, rec_h)))
    for name, text in outputs.items():
        path = os.path.join(args.out, name)
        if not os.path.exists(path) or open(path).read() != text:
            with open(path, 'w') as f:
                f.write(text)


if __name__ == '__main__':
    main()

"""A concrete set manager from its module list: <manager>.h and <manager>.cpp for the library,
<manager>.writer.h and <manager>.writer.cpp (the instances with their schema descriptions) for
the writer.

The class derives from ConcreteSetManager (parametermodules/concretesetmanager.h), which holds
everything the four managers share; the generated part is the registration table, the typed
constructors and factories, and the GetModule_<name> family, one expression each."""

from paramgen.emitcpp import LAYOUT_VERSION, Writer, banner
from paramgen.schema import cpp_identifier


def _module_type(instance):
    return "::%s::%s" % (instance.namespace, cpp_identifier(instance.type_name))


def _module_class(instance):
    return "::%s::%s" % (instance.namespace, cpp_identifier(instance.module.class_name))


class ManagerEmitter:
    def __init__(self, manager, list_name):
        self.manager = manager
        self.list_name = list_name

    # ---- library side -------------------------------------------------------------------

    def header(self):
        m = self.manager
        name = m.name
        out = Writer()
        out.line(banner(self.list_name).rstrip())
        out.line("#pragma once")
        out.line()
        out.line('#include "parameterparser/modeunion.h"')
        out.line('#include "parameterparser/parameterexport.h"')
        out.line('#include "parametermodules/concretesetmanager.h"')
        out.line()
        # The module types are only named here: a consumer includes the headers of the
        # namespaces it reads, and none of the others.
        for namespace in m.namespaces():
            types = []
            for instance in m.instances:
                type_name = cpp_identifier(instance.type_name)
                if instance.namespace == namespace and type_name not in types:
                    types.append(type_name)
            out.line("namespace %s {" % namespace)
            for type_name in types:
                out.line("struct %s;" % type_name)
            out.line("} // namespace %s" % namespace)
        if m.instances:
            out.line()
        out.line("static_assert(ParameterModuleLayoutVersion == %d," % LAYOUT_VERSION)
        out.line('              "generated for another module framework layout");')
        out.line()
        out.line("/// The set manager of the module list %s: %d module instance%s, %s."
                 % (name, len(m.instances), "" if len(m.instances) == 1 else "s",
                    "with the live tuning worker" if m.live_tuning else "no live tuning worker"))
        out.line("class PARAMETERPARSER_API %s : public ConcreteSetManager" % name)
        out.line("{")
        out.line("public:")
        out.depth += 1
        out.line("/// A main manager with a factory instance of every module of the list; name may "
                 "be null.")
        out.line("explicit %s(char const* name);" % name)
        out.line("/// A derived manager on main's mode table modeTableIndex. A null main is logged; "
                 "the object")
        out.line("/// then finds nothing.")
        out.line("%s(%s* main, unsigned char modeTableIndex);" % (name, name))
        out.line("~%s() override;" % name)
        out.line()
        out.line("/// The main manager: this object on a main manager. Borrowed.")
        out.line("%s* GetMainSetManager();" % name)
        out.line("/// A new derived manager on the main manager's table modeTableIndex, owned by the "
                 "caller,")
        out.line("/// who deletes it before the main manager. Null after logging when the index is "
                 "not below")
        out.line("/// the table count.")
        out.line("%s* CreateSetManager(unsigned char modeTableIndex);" % name)
        out.line("/// The same for the first of the main manager's tables named modeTableName; null "
                 "after")
        out.line("/// logging when no table has that name, null for a null name.")
        out.line("%s* CreateSetManager(char const* modeTableName);" % name)
        if m.instances:
            out.line()
            out.line("/// Each returns the module of that instance for the mode branch, with a "
                     "reference the caller")
            out.line("/// gives back by passing it as previous or by Release(); previous (may be "
                     "null) is released.")
            out.line("/// Null when the loaded file does not hold the module for the branch.")
        for instance in m.instances:
            module_type = _module_type(instance)
            out.line("%s* GetModule_%s(TuningMode const* modeBranch, unsigned int modeCount,"
                     % (module_type, instance.name))
            out.line("    %s* previous);" % module_type)
        out.depth -= 1
        out.line()
        out.line("private:")
        out.depth += 1
        out.line("%s* m_mainSet = nullptr;" % name)
        out.depth -= 1
        out.line("};")
        return out.text()

    def source(self):
        m = self.manager
        name = m.name
        out = Writer()
        out.line(banner(self.list_name).rstrip())
        out.line('#include "paramgen/%s.h"' % name)
        out.line()
        for namespace in m.namespaces():
            out.line('#include "paramgen/%s.h"' % namespace)
        if m.instances:
            out.line()
        if m.instances:
            out.line("namespace {")
            out.line()
            out.line("// Registration order is the list's order.")
            out.line("ConcreteSetManager::Registration const Registrations[] = {")
            out.depth += 1
            for instance in m.instances:
                out.line('{"%s", &ConcreteSetManager::MakeFactory<%s>},'
                         % (instance.name, _module_class(instance)))
            out.depth -= 1
            out.line("};")
            out.line()
            out.line("} // namespace")
            out.line()
            registrations = "Registrations, sizeof(Registrations) / sizeof(Registrations[0])"
        else:
            registrations = "nullptr, 0"
        out.line("%s::%s(char const* name)" % (name, name))
        out.line('    : ConcreteSetManager(Traits{"%s", %s, %s}, name, %s)'
                 % (name, "true" if m.live_tuning else "false",
                    "false" if m.quiet else "true", registrations))
        out.line("{")
        out.line("}")
        out.line()
        out.line("%s::%s(%s* main, unsigned char modeTableIndex)" % (name, name, name))
        out.line('    : ConcreteSetManager("%s", main, modeTableIndex), m_mainSet(main)' % name)
        out.line("{")
        out.line("}")
        out.line()
        out.line("%s::~%s()" % (name, name))
        out.line("{")
        out.line("    // The live tuning worker calls into this object: it stops before any part of the")
        out.line("    // object goes, this one first.")
        out.line("    StopKnobbyWorker();")
        out.line("}")
        out.line()
        out.line("%s* %s::GetMainSetManager()" % (name, name))
        out.line("{")
        out.line("    %s* main = this;" % name)
        out.line("    while (main->m_mainSet != nullptr)")
        out.line("        main = main->m_mainSet;")
        out.line("    return main;")
        out.line("}")
        out.line()
        out.line("%s* %s::CreateSetManager(unsigned char modeTableIndex)" % (name, name))
        out.line("{")
        out.line("    %s* main = GetMainSetManager();" % name)
        out.line("    if (!main->AcceptModeTableIndex(modeTableIndex))")
        out.line("        return nullptr;")
        out.line("    return new %s(main, modeTableIndex);" % name)
        out.line("}")
        out.line()
        out.line("%s* %s::CreateSetManager(char const* modeTableName)" % (name, name))
        out.line("{")
        out.line("    %s* main = GetMainSetManager();" % name)
        out.line("    unsigned char modeTableIndex = 0;")
        out.line("    if (!main->FindModeTableIndex(modeTableName, modeTableIndex))")
        out.line("        return nullptr;")
        out.line("    return new %s(main, modeTableIndex);" % name)
        out.line("}")
        for instance in m.instances:
            module_type = _module_type(instance)
            module_class = _module_class(instance)
            out.line()
            out.line("%s* %s::GetModule_%s(TuningMode const* modeBranch, unsigned int modeCount,"
                     % (module_type, name, instance.name))
            out.line("    %s* previous)" % module_type)
            out.line("{")
            out.line("    return static_cast<%s*>(GetModuleInternal(m_modeTableIndex, \"%s\", "
                     "modeBranch, modeCount," % (module_class, instance.name))
            out.line("        static_cast<%s*>(previous), true));" % module_class)
            out.line("}")
        return out.text()

    # ---- writer side --------------------------------------------------------------------

    def writer_header(self):
        name = self.manager.name
        out = Writer()
        out.line(banner(self.list_name).rstrip())
        out.line("#pragma once")
        out.line()
        out.line('#include "tools/generator/instancecatalogue.h"')
        out.line()
        out.line("namespace ParamSchema::%s {" % name)
        out.line()
        out.line("/// The module instances that %s registers, in its order, with the writer "
                 "description" % name)
        out.line("/// of each one's schema.")
        out.line("TuningWriter::InstanceCatalogue const& Instances();")
        out.line()
        out.line("} // namespace ParamSchema::%s" % name)
        return out.text()

    def writer_source(self):
        m = self.manager
        name = m.name
        out = Writer()
        out.line(banner(self.list_name).rstrip())
        out.line('#include "paramgen/%s.writer.h"' % name)
        out.line()
        for namespace in m.namespaces():
            out.line('#include "paramgen/%s.h"' % namespace)
        if m.instances:
            out.line()
        out.line("namespace ParamSchema::%s {" % name)
        out.line()
        if m.instances:
            out.line("namespace {")
            out.line()
            out.line("TuningWriter::InstanceSchema const InstanceList[] = {")
            out.depth += 1
            for instance in m.instances:
                major, minor, patch = instance.module.version
                out.line('{"%s", "%s::%s", &%s::Descriptor, {%d, %d, %du}},'
                         % (instance.name, instance.namespace, instance.type_name,
                            _module_type(instance), major, minor, patch))
            out.depth -= 1
            out.line("};")
            out.line()
            out.line("} // namespace")
            out.line()
            instances = "InstanceList, sizeof(InstanceList) / sizeof(InstanceList[0])"
        else:
            instances = "nullptr, 0"
        out.line("TuningWriter::InstanceCatalogue const& Instances()")
        out.line("{")
        out.line('    static TuningWriter::InstanceCatalogue const catalogue{"%s", %s};'
                 % (name, instances))
        out.line("    return catalogue;")
        out.line("}")
        out.line()
        out.line("} // namespace ParamSchema::%s" % name)
        return out.text()

#include "config/csvimporter.h"
#include "model/treeitemroot.h"
#include "server/addressspace.h"
#include "server/gatewayconfig.h"
#include "server/tagruntime.h"
#include "server/treeeditor.h"

#include <open62541/plugin/log_stdout.h>
#include <open62541/server_config_default.h>

#include <QtTest>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

class TestGatewayParts : public QObject
{
    Q_OBJECT
private slots:
    // Emulation spans the raw range: the line scale's input, else what the tag dialog says.
    void emulationSpansTheRawRange()
    {
        const std::int64_t t0 = 1700000000000; // a whole number of 4 s periods
        const auto spread = [t0](const CTagRuntime& r, int samples) {
            QList<double> v;
            for (int i = 0; i < samples; ++i)
                v << r.RawAt(t0 + i * std::int64_t(r.updateMs));
            std::sort(v.begin(), v.end());
            return v;
        };
        CTagRuntime a;
        a.kind = CTagRuntime::UInt16;
        a.emulation = CTagRuntime::Random;
        a.transform = CTagRuntime::LineScale;
        a.srcMin = 27648; // a reversed range is a range all the same
        a.srcMax = 0;
        a.updateMs = 100;
        a.SetSeed("C.D.G.A");
        CTagRuntime b = a;
        b.SetSeed("C.D.G.B");
        QCOMPARE(a.RawAt(t0), a.RawAt(t0 + 99)); // one value per update period
        QVERIFY(a.RawAt(t0) != b.RawAt(t0));     // and its own per tag
        QList<double> v = spread(a, 2000);
        QVERIFY(v.first() >= 0 && v.first() < 100 && v.last() <= 27648 && v.last() > 27500);
        QVERIFY(std::all_of(v.begin(), v.end(), [](double x) { return x == std::floor(x); }));
        a.transform = CTagRuntime::NoTransform;
        a.kind = CTagRuntime::Boolean;
        v = spread(a, 100);
        QVERIFY(v.first() == 0 && v.last() == 1);
        a.kind = CTagRuntime::Double;
        v = spread(a, 100);
        QVERIFY(v.first() >= 0 && v.first() < 0.2 && v.last() > 0.8 && v.last() <= 1);

        // A sine sampled at half its period shows its peaks, not its zero crossings.
        CTagRuntime s;
        s.kind = CTagRuntime::Int16;
        s.emulation = CTagRuntime::Sine;
        s.transform = CTagRuntime::LineScale;
        s.srcMin = 0;
        s.srcMax = 27648;
        s.updateMs = 500;
        const auto near = [](double x, double y) { return std::fabs(x - y) < 1e-6; };
        QVERIFY(near(s.RawAt(t0), 27648) && near(s.RawAt(t0 + 500), 0) && near(s.RawAt(t0 + 1000), 27648));
        s.period = 4;
        s.updateMs = 0;
        s.transform = CTagRuntime::NoTransform;
        QVERIFY(near(s.RawAt(t0 + 1000), 0) && near(s.RawAt(t0 + 2000), -1) && near(s.RawAt(t0), 1));
    }

    void transformations()
    {
        CTagRuntime c;
        c.kind = CTagRuntime::Int16;
        c.constant = 5;
        c.transform = CTagRuntime::LineScale;
        c.srcMax = 10;
        c.dstMin = 100;
        c.dstMax = 200;
        QCOMPARE(c.ValueAt(0), 150.0);
        c.srcMax = 0; // an empty raw range gives the low end
        QCOMPARE(c.ValueAt(0), 100.0);
        c.transform = CTagRuntime::Factor;
        c.factor = -2.5;
        QCOMPARE(c.ValueAt(0), -12.5);
        c.kind = CTagRuntime::Boolean; // bits are never scaled
        QCOMPARE(c.ValueAt(0), 5.0);
    }

    void filledValuesAreClampedAndTimed()
    {
        CTagRuntime t;
        t.kind = CTagRuntime::Int16;
        t.constant = 1e6; // out of range: clamped, not wrapped
        t.emulated = true;
        UA_DataValue dv;
        UA_DataValue_init(&dv);
        t.Fill(1700000000123, true, &dv);
        QVERIFY(dv.hasValue && !dv.hasStatus);
        QCOMPARE(*static_cast<UA_Int16*>(dv.value.data), UA_Int16(32767));
        QCOMPARE(dv.sourceTimestamp, UA_DATETIME_UNIX_EPOCH + 1700000000100LL * UA_DATETIME_MSEC);
        UA_DataValue_clear(&dv);

        t.kind = CTagRuntime::Byte;
        t.constant = -3;
        t.Fill(0, false, &dv);
        QCOMPARE(*static_cast<UA_Byte*>(dv.value.data), UA_Byte(0));
        QVERIFY(!dv.hasSourceTimestamp);
        UA_DataValue_clear(&dv);
    }

    // A node gone under the tree (as a client's DeleteNodes once took it) makes
    // edits below it refused, and a node the library refused is never left over
    // a freed runtime: reading it under the sanitizers tells.
    void editsWhereTheParentNodeIsGone()
    {
        CTreeItemRoot root;
        QVERIFY(CCsvLoader(&root).Load(VELMORA_TEST_DATA "/worked_example.cfg", false));
        UA_ServerConfig config{};
        config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
        UA_ServerConfig_setDefault(&config);
        UA_Server* server = UA_Server_newWithConfig(&config);
        CExchangeClock clock;
        auto space = std::make_unique<CAddressSpace>(server, &clock);
        CTreeEditor editor(&root, space.get());
        QCOMPARE(space->CreateRoot(), UA_STATUSCODE_GOOD);
        QCOMPARE(space->Build(&root), UA_STATUSCODE_GOOD);
        const std::string group = "Channel_0.Device_0.Group_0";
        const std::string tag = group + ".Tag_0";
        QCOMPARE(UA_Server_deleteNode(server, CAddressSpace::NodeId(group), true), UA_STATUSCODE_GOOD);

        using M = CMethodArgument::Method;
        const std::pair<M, std::string> calls[] = {{M::Edit, tag + ";4;Tag_0;3;40;5;0;1;1;0;2;0;0;0;0;0"},
                                                   {M::Add, group + ";4;Новый;3;40;5;0;1;1;0;2;0;0;0;0;0"},
                                                   {M::Delete, tag}};
        for (const auto& [method, text] : calls) {
            CMethodArgument argument;
            std::string why;
            QVERIFY2(CMethodArgument::Parse(method, text, argument, why), why.c_str());
            const UA_StatusCode rc = method == M::Edit  ? editor.Edit(argument)
                                     : method == M::Add ? editor.Add(argument)
                                                        : editor.Delete(argument);
            QVERIFY2(rc == UA_STATUSCODE_BADPARENTNODEIDINVALID, text.c_str());
        }
        CItem* item = editor.Find(tag);
        QVERIFY(item && !editor.Find(group + ".Новый"));
        QVERIFY(space->Build(item) != UA_STATUSCODE_GOOD);
        UA_Variant value;
        UA_Variant_init(&value);
        QVERIFY(UA_Server_readValue(server, CAddressSpace::NodeId(tag), &value) != UA_STATUSCODE_GOOD);
        UA_Variant_clear(&value);
        UA_Server_delete(server);
        space.reset();
    }

    // The tree built at start goes into the node store directly; a client must
    // find every node as the library's AddNodes makes it for a single item:
    // attributes, references both ways, the node's own flags. Either way each
    // tag has its type definition, and the type lists no tag back.
    void startNodesAsAddNodesMakesThem()
    {
        CTreeItemRoot root;
        QVERIFY(CCsvLoader(&root).Load(VELMORA_TEST_DATA "/worked_example.cfg", false));
        CExchangeClock clock;
        const auto fingerprint = [&root, &clock](bool whole) {
            int tagsOnType = 0;
            int typedTags = 0;
            UA_ServerConfig config{};
            config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
            UA_ServerConfig_setDefault(&config);
            UA_Server* server = UA_Server_newWithConfig(&config);
            CAddressSpace space(server, &clock);
            space.CreateRoot();
            if (whole)
                space.Build(&root);
            for (auto& channel : root)
                if (!whole)
                    space.Build(channel.second);
            // Full name and name of each node, then of its parent; BaseDataVariableType first.
            std::vector<std::array<std::string, 4>> nodes{{"i=63", "", "", ""}};
            std::function<void(CItem*, const std::string&, const std::string&)> collect =
                [&](CItem* item, const std::string& parent, const std::string& parentName) {
                    const std::string id = parent == CAddressSpace::kChannelsId
                                               ? item->GetName()
                                               : parent + "." + item->GetName();
                    nodes.push_back({id, item->GetName(), parent, parentName});
                    for (auto& child : *item)
                        collect(child.second, id, item->GetName());
                };
            for (auto& channel : root)
                collect(channel.second, CAddressSpace::kChannelsId, CAddressSpace::kChannelsId);
            QString text;
            const auto print = [&text](const void* p, const UA_DataType* type) {
                UA_String out = UA_STRING_NULL;
                UA_print(p, type, &out);
                text += QString::fromUtf8(reinterpret_cast<const char*>(out.data), int(out.length)) + "\n";
                UA_String_clear(&out);
            };
            UA_Nodestore& store = UA_Server_getConfig(server)->nodestore;
            for (const auto& [id, name, parent, parentName] : nodes) {
                const UA_NodeId nodeId = name.empty() ? UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE)
                                                      : CAddressSpace::NodeId(id);
                // Found by name from the parent, and the parent by name from the node.
                for (bool up : {false, true}) {
                    if (name.empty())
                        break;
                    UA_RelativePathElement step;
                    UA_RelativePathElement_init(&step);
                    step.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT);
                    step.isInverse = up;
                    step.targetName =
                        UA_QUALIFIEDNAME(2, const_cast<char*>((up ? parentName : name).c_str()));
                    UA_BrowsePath path;
                    UA_BrowsePath_init(&path);
                    path.startingNode = up ? nodeId : CAddressSpace::NodeId(parent);
                    path.relativePath.elements = &step;
                    path.relativePath.elementsSize = 1;
                    UA_BrowsePathResult found = UA_Server_translateBrowsePathToNodeIds(server, &path);
                    print(&found, &UA_TYPES[UA_TYPES_BROWSEPATHRESULT]);
                    UA_BrowsePathResult_clear(&found);
                }
                for (UA_UInt32 attribute = UA_ATTRIBUTEID_NODEID; attribute <= UA_ATTRIBUTEID_ACCESSLEVELEX;
                     ++attribute) {
                    UA_ReadValueId item;
                    UA_ReadValueId_init(&item);
                    item.nodeId = nodeId;
                    item.attributeId = attribute;
                    UA_DataValue value = UA_Server_read(server, &item, UA_TIMESTAMPSTORETURN_NEITHER);
                    // A tag's value moves with the time it is read at.
                    if (attribute == UA_ATTRIBUTEID_VALUE && value.value.type)
                        text += QString::number(value.value.type->typeId.identifier.numeric) + "\n";
                    else
                        print(&value, &UA_TYPES[UA_TYPES_DATAVALUE]);
                    UA_DataValue_clear(&value);
                }
                UA_BrowseDescription browse;
                UA_BrowseDescription_init(&browse);
                browse.nodeId = nodeId;
                browse.browseDirection = UA_BROWSEDIRECTION_BOTH;
                browse.includeSubtypes = true;
                browse.resultMask = UA_BROWSERESULTMASK_ALL;
                UA_BrowseResult result = UA_Server_browse(server, 0, &browse);
                print(&result, &UA_TYPES[UA_TYPES_BROWSERESULT]);
                const UA_NodeId typeDefinition = UA_NODEID_NUMERIC(0, UA_NS0ID_HASTYPEDEFINITION);
                for (size_t r = 0; r < result.referencesSize; ++r) {
                    const UA_ReferenceDescription& ref = result.references[r];
                    if (name.empty())
                        tagsOnType += ref.nodeId.nodeId.namespaceIndex == 2;
                    else if (UA_NodeId_equal(&ref.referenceTypeId, &typeDefinition) && ref.isForward &&
                             ref.nodeId.nodeId.identifier.numeric == UA_NS0ID_BASEDATAVARIABLETYPE)
                        ++typedTags;
                }
                UA_BrowseResult_clear(&result);
                const UA_Node* node = store.getNode(store.context, &nodeId, UA_NODEATTRIBUTESMASK_ALL,
                                                    UA_REFERENCETYPESET_ALL, UA_BROWSEDIRECTION_BOTH);
                text += QString("constructed %1 context %2")
                            .arg(node->head.constructed)
                            .arg(!!node->head.context);
                if (node->head.nodeClass == UA_NODECLASS_VARIABLE)
                    text += QString(" dynamic %1 source %2 %3 %4")
                                .arg(node->variableNode.isDynamic)
                                .arg(node->variableNode.valueSource)
                                .arg(!!node->variableNode.value.dataSource.read)
                                .arg(!!node->variableNode.value.dataSource.write);
                text += "\n";
                store.releaseNode(store.context, node);
            }
            UA_Server_delete(server);
            return text + QString("type lists %1 tags, %2 tags typed\n").arg(tagsOnType).arg(typedTags);
        };
        const QString direct = fingerprint(true);
        QVERIFY(direct.contains("Tag_2") && direct.contains("dynamic 1 source 1 1 0"));
        QVERIFY(direct.contains(QString("type lists 0 tags, %1 tags typed").arg(root.GetItemsCount(itTag))));
        QCOMPARE(direct, fingerprint(false));
    }

    void tailAndUsersBlock()
    {
        CGatewayConfig config;
        config.Parse(";row;of;the;tree\nINIFILE\n\n[options]\nport = 4841\nlog = debug\n"
                     "derFile = \ntrustFolder = /t\nUSERS\n\n[users]\nusers = оператор;секрет;admin;;x;");
        QCOMPARE(config.options.at("port"), std::string("4841"));
        QCOMPARE(config.options.at("derFile"), std::string());
        QVERIFY(!config.options.count("users"));
        // A login without its password at the end is no user.
        using User = std::pair<std::string, std::string>;
        QCOMPARE(config.users, (std::vector<User>{{"оператор", "секрет"}, {"admin", ""}}));

        config.Parse(";tree only\n");
        QVERIFY(config.options.empty() && config.users.empty());
    }
};

QTEST_GUILESS_MAIN(TestGatewayParts)
#include "tst_gatewayparts.moc"

// Drives the gateway with node-opcua-client in its default configuration and
// prints one line per step, marked "= " apart from the library's own chatter:
//   node interop.js <url> [<login> <password>]   the whole round
//   node interop.js <url> hold                   session + subscription, then waits to be killed
//   node interop.js <url> count                  the server's count of subscriptions
//   node interop.js <url> flood                  sessions never activated, as many as it takes, held
//   node interop.js <url> probe                  tries to log in until it can; how long that took
//   node interop.js <url> diagnostics <polled device> <emulated device>
//                                                the statistics of both, and their objects through a
//                                                rename and a deletion; leaves the exchange stopped
const opcua = require("node-opcua-client");
const types = require("node-opcua-types");
const { AttributeIds, DataType, NodeClass, TimestampsToReturn, UserTokenType } = opcua;

const [url, login, password, other] = process.argv.slice(2);
const say = (...words) => console.log("= " + words.join(" "));
const ns2 = (id) => "ns=2;s=" + id;

async function browseAll(session, id, found) {
    const result = await session.browse(ns2(id));
    for (const ref of result.references || []) {
        const child = ref.nodeId;
        if (ref.isForward && child.namespace === 2 && typeof child.value === "string") {
            found.push(child.value);
            await browseAll(session, child.value, found);
        }
    }
    return found;
}

// Counts the data changes of all `ids` until `count` arrived or 15 s passed.
async function monitor(session, ids, count) {
    const subscription = await session.createSubscription2({
        requestedPublishingInterval: 100, requestedMaxKeepAliveCount: 10, publishingEnabled: true,
    });
    let changes = 0;
    await new Promise(async (done) => {
        setTimeout(done, 15000);
        for (const id of ids) {
            const item = await subscription.monitor({ nodeId: ns2(id), attributeId: AttributeIds.Value },
                { samplingInterval: 100, queueSize: 10 }, TimestampsToReturn.Both);
            item.on("changed", () => { if (++changes === count) done(); });
        }
    });
    return changes;
}

const transaction = (session, request) =>
    new Promise((done, fail) => session.performMessageTransaction(request, (e, r) => (e ? fail(e) : done(r))));

// The four node management services on a group and one of its tags; their statuses.
async function manage(session, group, tag) {
    const reference = { referenceTypeId: "i=47", isForward: true, targetNodeId: ns2(tag) };
    const requests = [
        new types.DeleteNodesRequest({ nodesToDelete: [{ nodeId: ns2(group), deleteTargetReferences: true }] }),
        new types.AddNodesRequest({ nodesToAdd: [{ parentNodeId: ns2("Каналы"), referenceTypeId: "i=47",
            requestedNewNodeId: ns2("Чужой"), browseName: { namespaceIndex: 2, name: "Чужой" },
            nodeClass: NodeClass.Object, typeDefinition: "i=58", nodeAttributes: new types.ObjectAttributes() }] }),
        new types.AddReferencesRequest({ referencesToAdd: [{ ...reference, sourceNodeId: ns2("Каналы"),
            targetNodeClass: NodeClass.Variable }] }),
        new types.DeleteReferencesRequest({ referencesToDelete: [{ ...reference, sourceNodeId: ns2(group),
            deleteBidirectional: true }] }),
    ];
    const statuses = [];
    for (const request of requests) {
        const result = (await transaction(session, request)).results[0];
        statuses.push((result.statusCode || result).name);
    }
    return statuses;
}

// Sessions created and never activated, until the server takes no more.
async function flood(client) {
    let made = 0;
    for (;;) {
        try {
            await new Promise((done, fail) => client._createSession((e, s) => (e ? fail(e) : done(s))));
            ++made;
        } catch (e) {
            return made;
        }
    }
}

async function probe(url) {
    const started = Date.now();
    for (;;) {
        const client = opcua.OPCUAClient.create({ connectionStrategy: { maxRetry: 0 } });
        try {
            await client.connect(url);
            const session = await client.createSession();
            say("in", Date.now() - started);
            await session.close();
            await client.disconnect();
            return;
        } catch (e) {
            await client.disconnect().catch(() => {});
            await new Promise((done) => setTimeout(done, 100));
        }
    }
}

async function call(session, method, argument) {
    const result = await session.call({
        objectId: ns2("Каналы"), methodId: ns2("Каналы." + method),
        inputArguments: [{ dataType: DataType.String, value: argument }],
    });
    say("call", method, result.statusCode.name);
}

// The statistics of a polled device on a channel of its own and of an emulated
// one, read with the exchange stopped so that the counts hold still.
async function diagnostics(session, device, emulated) {
    const ns = (await session.readNamespaceArray()).indexOf("urn:velmora:diagnostics");
    const id = (name) => "ns=" + ns + ";s=" + name;
    const read = async (name) => {
        const v = (await session.read({ nodeId: id(name), attributeId: AttributeIds.Value })).value;
        const x = Array.isArray(v.value) ? v.value[0] * 4294967296 + v.value[1]
            : v.value instanceof Date ? v.value.getUTCFullYear() : v.value;
        return DataType[v.dataType] + " " + x;
    };
    // The objects below "Диагностика", as paths of their names.
    const objects = async (nodeId = id("Диагностика"), path = "", found = []) => {
        for (const ref of (await session.browse(nodeId)).references || []) {
            if (ref.isForward && ref.nodeClass === NodeClass.Object) {
                found.push(path + ref.browseName.name);
                await objects(ref.nodeId, path + ref.browseName.name + "/", found);
            }
        }
        return found.join(",");
    };
    const channel = device.split(".")[0];
    say("diagnostics", await objects());
    say("state", await read(device + ".State"), await read(emulated + ".State"), await read(channel + ".Link"));
    await call(session, "stopExchange", "emul");
    // A request under way at the stop is counted when its answer comes.
    for (let last = ""; last !== (last = await read(device + ".Requests"));)
        await new Promise((done) => setTimeout(done, 200));
    for (const name of ["State", "Requests", "Answers", "Timeouts", "Exceptions", "MeanResponseMs", "LastError",
        "LastErrorTime"])
        say("device", name, await read(device + "." + name));
    say("channel Requests", await read(channel + ".Requests"));
    const written = await session.write({ nodeId: id(device + ".State"), attributeId: AttributeIds.Value,
        value: { value: { dataType: DataType.String, value: "polled" } } });
    say("write", written.name);
    await call(session, "editNode", device + ";2;" + device.split(".")[1] + "2;\u0001;1;0;};\u07d0;\u0001");
    say("diagnostics", await objects());
    await call(session, "deleteNode", device + "2");
    say("diagnostics", await objects());
}

(async () => {
    if (login === "probe") {
        await probe(url);
        return process.exit(0);
    }
    const hold = login === "hold";
    // The held session is to end soon after its client is gone.
    const client = opcua.OPCUAClient.create(hold ? { requestedSessionTimeout: 2000 } : {});
    await client.connect(url);
    if (login === "flood") {
        say("flooded", await flood(client));
        return new Promise(() => {});
    }
    if (login === "diagnostics") {
        await diagnostics(await client.createSession(), password, other);
        say("done");
        return process.exit(0);
    }
    if (login === "count") {
        const session = await client.createSession();
        const count = await session.read({ nodeId: "i=2285", attributeId: AttributeIds.Value });
        say("subscriptions", count.value.value);
        return process.exit(0);
    }
    const servers = await client.findServers();
    say("servers", servers.map((s) => s.applicationUri).join(","));
    const endpoints = await client.getEndpoints();
    say("endpoints", endpoints.map((e) => e.securityPolicyUri.split("#")[1] + "/" + e.securityMode).join(","));
    const identity = login && !hold
        ? { type: UserTokenType.UserName, userName: login, password: password } : undefined;
    const session = await client.createSession(identity);
    const tags = (await browseAll(session, "Каналы", [])).filter((id) => id.split(".").length === 4);
    say("tags", tags.sort().join(","));
    if (hold) {
        say("holding", await monitor(session, tags, 1));
        return new Promise(() => {});
    }
    const read = async (id) => {
        const value = await session.read({ nodeId: ns2(id), attributeId: AttributeIds.Value });
        say("read", id, value.statusCode.name, value.value.value);
    };
    for (const id of tags)
        await read(id);
    // The address space changes through the methods only; an edit of a tag of the
    // group that a client tried to delete leaves a tag that reads as before.
    const before = (await browseAll(session, "Каналы", [])).sort();
    say("manage", (await manage(session, tags[0].slice(0, tags[0].lastIndexOf(".")), tags[0])).join(" "));
    await call(session, "editNode", tags[0] + ";4;" + tags[0].split(".").pop());
    await read(tags[0]);
    say("unchanged", JSON.stringify((await browseAll(session, "Каналы", [])).sort()) === JSON.stringify(before));
    say("changes", await monitor(session, tags, tags.length + 3) >= tags.length + 3);
    await call(session, "stopExchange", "emul");
    await call(session, "addNode", "Каналы;1;Узел;1;500;3;0;2;16777343;502;5000");
    await call(session, "editNode", "Узел;1;Узел2;1;500;3;0;2;16777343;503;5000");
    await call(session, "addNode", "Каналы;1;Каналы;1;500;3;0;2;16777343;502;5000");
    await call(session, "deleteNode", "Узел2");
    await call(session, "startExchange", "emul");
    say("tags", (await browseAll(session, "Каналы", [])).filter((id) => id.split(".").length === 4).length);
    await session.close();
    await client.disconnect();
    say("done");
    process.exit(0);
})().catch((e) => { say("error", e.message); process.exit(1); });

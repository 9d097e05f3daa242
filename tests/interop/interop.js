// Drives the gateway with node-opcua-client in its default configuration and
// prints one line per step, marked "= " apart from the library's own chatter:
//   node interop.js <url> [<login> <password>]   the whole round
//   node interop.js <url> hold                   session + subscription, then waits to be killed
const opcua = require("node-opcua-client");
const { AttributeIds, DataType, TimestampsToReturn, UserTokenType } = opcua;

const [url, login, password] = process.argv.slice(2);
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

async function call(session, method, argument) {
    const result = await session.call({
        objectId: ns2("Каналы"), methodId: ns2("Каналы." + method),
        inputArguments: [{ dataType: DataType.String, value: argument }],
    });
    say("call", method, result.statusCode.name);
}

(async () => {
    const hold = login === "hold";
    // The held session is to end soon after its client is gone.
    const client = opcua.OPCUAClient.create(hold ? { requestedSessionTimeout: 2000 } : {});
    await client.connect(url);
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
    for (const id of tags) {
        const read = await session.read({ nodeId: ns2(id), attributeId: AttributeIds.Value });
        say("read", id, read.statusCode.name, read.value.value);
    }
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

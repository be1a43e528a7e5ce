// The agent console in a real browser: a reply typed in the page reaches the
// user's message list through the API; pages of other origins cannot drive
// the console through the agent's browser; files users send never run in it.
//
//   node console.test.js <path of zuvero-devserver>
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import crypto from "node:crypto";
import { mkdtempSync, readFileSync, rmSync } from "node:fs";
import http from "node:http";
import https from "node:https";
import os from "node:os";
import path from "node:path";
import readline from "node:readline";
import { chromium } from "playwright-core";

const serverPath = process.argv[2];
const scratch = mkdtempSync(path.join(os.tmpdir(), "zuvero-console-test-"));
const secret = crypto.randomBytes(32);
const apiKey = crypto.createHash("sha256").update(secret).digest("hex");
// The server's log, kept to see what it refused.
const logged = [];

function startServer() {
  const server = spawn(serverPath, ["--data", path.join(scratch, "data"), "--port", "0", "--api-secret", secret.toString("hex")],
    { stdio: ["ignore", "pipe", "pipe"] });
  readline.createInterface({ input: server.stderr }).on("line", (line) => {
    logged.push(line);
    process.stderr.write(line + "\n");
  });
  return new Promise((resolve, reject) => {
    const found = {};
    server.once("exit", (code) => reject(new Error(`zuvero-devserver exited with ${code}`)));
    readline.createInterface({ input: server.stdout }).on("line", (line) => {
      const [, key, value] = /^zuvero-devserver: (certificate authority|console|listening on): (.*)$/.exec(line.replace("listening on ", "listening on: ")) || [];
      if (key) found[key] = value;
      if (found["listening on"] && found["certificate authority"] && found.console) {
        resolve({ server, origin: found["listening on"], console: found.console, ca: readFileSync(found["certificate authority"]) });
      }
    });
  });
}

function token(claims) {
  const encode = (object) => Buffer.from(JSON.stringify(object)).toString("base64url");
  const input = encode({ alg: "HS256", typ: "JWT" }) + "." + encode(claims);
  return input + "." + crypto.createHmac("sha256", secret).update(input).digest("base64url");
}

// One HTTPS request that trusts only the server's own authority.
function request(target, { method = "GET", headers = {}, body } = {}) {
  return new Promise((resolve, reject) => {
    const req = https.request(target, { method, headers, ca: context.ca }, (res) => {
      const chunks = [];
      res.on("data", (chunk) => chunks.push(chunk));
      res.on("end", () => resolve({ status: res.statusCode, headers: res.headers, body: Buffer.concat(chunks) }));
    });
    req.on("error", reject);
    req.end(body);
  });
}

async function api(pathAndQuery, options = {}) {
  const headers = { "X-ZVL-JWT": userToken, ...options.headers };
  const reply = await request(context.origin + "/api/1.0" + pathAndQuery, { ...options, headers });
  assert.equal(reply.status, 200, `${pathAndQuery}: ${reply.body}`);
  return JSON.parse(reply.body);
}

// The console's own calls, as a script makes them: with its key in a header.
async function consoleAPI(pathAndQuery) {
  const reply = await request(context.origin + "/console/api" + pathAndQuery, { headers: { "X-Zuvero-Console": consoleKey } });
  assert.equal(reply.status, 200, `${pathAndQuery}: ${reply.body}`);
  return JSON.parse(reply.body);
}

function multipart(parts) {
  const boundary = "ConsoleTestBoundary" + crypto.randomUUID();
  const chunks = parts.map(({ name, filename, type, content }) => Buffer.concat([
    Buffer.from(`--${boundary}\r\nContent-Disposition: form-data; name="${name}"${filename ? `; filename="${filename}"` : ""}\r\n`
      + (type ? `Content-Type: ${type}\r\n` : "") + "\r\n"),
    Buffer.from(content), Buffer.from("\r\n")]));
  return { body: Buffer.concat([...chunks, Buffer.from(`--${boundary}--`)]), type: `multipart/form-data; boundary=${boundary}` };
}

async function sendAsUser(text, files = []) {
  const attachments = files.map((file) => ({ ...file, uuid: crypto.randomUUID() }));
  const json = JSON.stringify({ uuid: crypto.randomUUID(), sender: "user", text, attachments: attachments.map(({ uuid, name }) => ({ uuid, filename: name })) });
  const form = multipart([{ name: "message", type: "application/json", content: json },
    ...attachments.map(({ uuid, name, type, content }) => ({ name: uuid, filename: name, type, content }))]);
  await api("/messages", { method: "POST", body: form.body, headers: { "Content-Type": form.type } });
}

async function eventually(what, check, timeoutMs = 20000) {
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    const result = await check();
    if (result) return result;
    if (Date.now() > deadline) throw new Error("timed out waiting for " + what);
    await new Promise((resolve) => setTimeout(resolve, 100));
  }
}

function listen(server, host) {
  return new Promise((resolve) => server.listen(0, host, () => resolve(server.address().port)));
}

function pinOf(certificatePem) {
  const certificate = new crypto.X509Certificate(certificatePem);
  return crypto.createHash("sha256").update(certificate.publicKey.export({ type: "spki", format: "der" })).digest("base64");
}

// What a page of another site does to a console it can reach through the agent's browser:
// post a reply and mark the conversation read, by fetch and by a form.
function attackPage(target, conversation) {
  const messages = `${target}/console/api/conversations/${conversation}/messages`;
  return `<!DOCTYPE html><title>attacker</title>
<iframe name="sink"></iframe>
<form id="form" method="POST" enctype="multipart/form-data" target="sink" action="${messages}">
<input name="text" value="forged by a form"></form>
<script>
(async () => {
  const form = new FormData();
  form.append("text", "forged by fetch");
  const attempts = [fetch("${messages}", { method: "POST", body: form, mode: "no-cors", credentials: "include" }),
    fetch("${target}/console/api/conversations/${conversation}/read", { method: "POST", mode: "no-cors", credentials: "include" })];
  await Promise.allSettled(attempts);
  document.querySelector("iframe").addEventListener("load", () => { document.title = "done"; }, { once: true });
  document.getElementById("form").submit();
})();
</script>`;
}

// A script that, run on the console's origin, would answer the user as an agent.
function payload(conversation) {
  return `const form = new FormData(); form.append("text", "pwned");
fetch("/console/api/conversations/${conversation}/messages", { method: "POST", body: form });
document.title = "pwned";`;
}

const context = await startServer();
const consoleKey = new URL(context.console).searchParams.get("key");
const userToken = token({ apiKey, installationId: crypto.randomUUID().toUpperCase(), userName: "Browser Test User" });
let browser;
const others = [];
try {
  await api("/register", { method: "POST", body: JSON.stringify({ appId: "org.example.test" }), headers: { "Content-Type": "application/json" } });
  await sendAsUser("My printer is on fire");
  const [conversation] = (await consoleAPI("/conversations")).conversations;
  assert.equal(conversation.unread, 1);

  // Without the key the console is closed, even to this machine.
  for (const target of ["/console", "/console/console.js", "/console/api/conversations"]) {
    assert.equal((await request(context.origin + target)).status, 403, target);
  }

  // Two pages of other origins: one on another port of the same address (the same site to a
  // browser, so the agent's cookie goes along) and one on another host name (another site).
  const attackerKeys = path.join(scratch, "attacker-key.pem"), attackerCertificate = path.join(scratch, "attacker.pem");
  execFileSync("openssl", ["req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
    "-keyout", attackerKeys, "-out", attackerCertificate, "-days", "1", "-subj", "/CN=127.0.0.1",
    "-addext", "subjectAltName=IP:127.0.0.1"], { stdio: "ignore" });
  const serveAttack = (req, res) => {
    res.writeHead(200, { "Content-Type": "text/html" });
    res.end(attackPage(context.origin, conversation.id));
  };
  const sameSite = https.createServer({ key: readFileSync(attackerKeys), cert: readFileSync(attackerCertificate) }, serveAttack);
  const otherSite = http.createServer(serveAttack);
  others.push(sameSite, otherSite);
  const sameSitePage = `https://127.0.0.1:${await listen(sameSite, "127.0.0.1")}/`;
  const otherSitePage = `http://localhost:${await listen(otherSite, "127.0.0.1")}/`;

  // Chromium trusts exactly these keys, with certificate checks otherwise on.
  const serverPin = pinOf(readFileSync(path.join(scratch, "data", "tls", "server.pem")));
  browser = await chromium.launchPersistentContext(path.join(scratch, "profile"), {
    executablePath: "/usr/bin/chromium",
    headless: true,
    acceptDownloads: true,
    args: ["--no-sandbox", "--headless", "--disable-gpu", "--disable-background-networking", "--disable-component-update",
      "--no-first-run", `--ignore-certificate-errors-spki-list=${serverPin},${pinOf(readFileSync(attackerCertificate))}`],
  });
  const page = browser.pages()[0] || await browser.newPage();
  const polls = [];
  page.on("request", (req) => {
    if (/\/console\/api\/conversations\/\d+\/messages/.test(req.url()) && req.method() === "GET") polls.push(new URL(req.url()).search);
  });

  // The printed address gives the agent's browser its cookie, and the key leaves the address bar.
  await page.goto(context.console);
  assert.equal(page.url(), context.origin + "/console");
  await page.locator("#conversations li", { hasText: "Browser Test User" }).waitFor();

  // Both attacks run in the agent's browser, where the console's cookie lives.
  for (const attacker of [sameSitePage, otherSitePage]) {
    const tab = await browser.newPage();
    await tab.goto(attacker);
    await eventually("the attack on " + attacker, async () => (await tab.title()) === "done");
    await tab.close();
  }
  const refused = logged.filter((line) => new RegExp(`POST /console/api/conversations/${conversation.id}/(messages|read) 403`).test(line));
  assert.equal(refused.length, 6, "each forged post reached the server and was refused");
  assert.deepEqual((await api("/messages")).messages.filter((message) => message.sender !== "user"), []);
  assert.equal((await consoleAPI("/conversations")).conversations[0].unread, 1, "nothing marked the conversation read");
  console.log("PASS: pages of another origin or site could not post or mark read through the agent's browser");

  // The agent answers in the console.
  await page.locator("#conversations li", { hasText: "Browser Test User" }).click();
  await page.locator("#messages .message.user", { hasText: "My printer is on fire" }).waitFor();
  await page.fill("#agent-name", "Dana");
  await page.fill("#reply-text", "Please step away from the printer.");
  await page.setInputFiles("#reply-file", { name: "safety.txt", mimeType: "text/plain", buffer: Buffer.from("Stop, drop and roll.") });
  await page.click("#reply-send");
  await page.locator("#messages .message.agent", { hasText: "Please step away from the printer." }).waitFor();

  const reply = await eventually("the reply in the user's list", async () =>
    (await api("/messages?limit=50&")).messages.find((message) => message.sender === "agent"));
  assert.equal(reply.text, "Please step away from the printer.");
  assert.equal(reply.userName, "Dana");
  assert.equal(reply.attachments.length, 1);
  assert.equal(reply.attachments[0].filename, "safety.txt");
  const file = await request(reply.attachments[0].dataURL + "?jwt=" + userToken);
  assert.equal(file.status, 200);
  assert.equal(file.body.toString(), "Stop, drop and roll.");
  // Shown to the agent, the user's message is marked read for the agents.
  await eventually("the conversation read", async () => (await consoleAPI("/conversations")).conversations[0].unread === 0);
  console.log("PASS: an agent reply typed in the console reached the user's message list");

  // Files a user sends that a browser could run, opened by the agent from the console.
  await sendAsUser("See attached", [
    { name: "invoice.html", type: "text/html", content: `<script>${payload(conversation.id)}</script>` },
    { name: "logo.svg", type: "image/svg+xml", content: `<svg xmlns="http://www.w3.org/2000/svg"><script>${payload(conversation.id)}</script></svg>` },
    { name: "photo.png", type: "image/png", content: `<html><script>${payload(conversation.id)}</script></html>` },
  ]);
  await page.locator("#messages a", { hasText: "photo.png" }).waitFor();
  const downloads = [];
  browser.on("page", (opened) => opened.on("download", (download) => downloads.push(download.suggestedFilename())));
  page.on("download", (download) => downloads.push(download.suggestedFilename()));
  for (const name of ["invoice.html", "logo.svg"]) await page.locator("#messages a", { hasText: name }).click();
  await eventually("both files downloaded, not shown", () => downloads.length === 2);
  assert.deepEqual(downloads.sort(), ["invoice.html", "logo.svg"]);
  // The tabs the downloads opened close by themselves; the next tab opened is the picture's.
  await eventually("the download tabs closed", () => browser.pages().length === 1);
  const [picture] = await Promise.all([browser.waitForEvent("page"), page.locator("#messages a", { hasText: "photo.png" }).click()]);
  await picture.waitForLoadState("load");
  assert.notEqual(await picture.title(), "pwned");
  await picture.close();
  assert.notEqual(await page.title(), "pwned");
  const agentTexts = (await api("/messages")).messages.filter((message) => message.sender === "agent").map((message) => message.text);
  assert.deepEqual(agentTexts, ["Please step away from the printer."]);
  console.log("PASS: HTML and SVG files were downloaded and a script posing as a picture did not run");

  // After the first page, every poll asks only for what came after the last message shown.
  await eventually("a few polls", () => polls.length >= 4);
  assert.equal(polls[0], "");
  assert.ok(polls.slice(1).every((query) => /^\?after=\d+$/.test(query)), JSON.stringify(polls));
  console.log("PASS: the console polls only for messages after the last one it shows");
} finally {
  await browser?.close();
  for (const other of others) other.close();
  context.server.kill("SIGTERM");
  await new Promise((resolve) => context.server.once("exit", resolve));
  rmSync(scratch, { recursive: true, force: true });
}

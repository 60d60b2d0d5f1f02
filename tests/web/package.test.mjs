// The page author's npm package: web/ packed with `npm pack`, installed into a scratch project as a
// page author installs it, and a page that uses it checked by TypeScript in strict mode.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { copyFile, mkdir, mkdtemp, readFile, rm, writeFile } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

const run = promisify(execFile);
const here = path.dirname(fileURLToPath(import.meta.url));
const web = path.join(here, '../../web');
const tsc = path.join(here, 'node_modules/typescript/bin/tsc');
const version = (await readFile(path.join(here, '../../VERSION'), 'utf8')).split('\n')[0].trim();

const TSCONFIG = {
  compilerOptions: {
    strict: true, noEmit: true, target: 'ES2022', module: 'ES2022', moduleResolution: 'bundler',
    lib: ['ES2022', 'DOM'], skipLibCheck: false, noUncheckedIndexedAccess: true, exactOptionalPropertyTypes: true,
  },
  include: ['page.ts'],
};

const GOOD_PAGE = `import { connect, type PageFileName } from 'gra-overlay-page';

const overlay = connect({ devPanel: false });
overlay.on('show', ({ pad }) => { document.title = pad; });
overlay.on('note', ({ note }) => console.log(note));
const file: PageFileName = 'gra_overlay.json';
const quests = await overlay.loadJSON<string[]>(file, []);
await overlay.saveJSON('gra_overlay.json', quests);
await overlay.save('gra_pad.json', 'text');
overlay.game('quest_done', quests.length);
overlay.mode('passive');
`;

let scratch;
let tarball;

before(async () => {
  scratch = await mkdtemp(path.join(os.tmpdir(), 'gra-page-package-'));
  const { stdout } = await run('npm', ['pack', '--pack-destination', scratch, '--json'], { cwd: web });
  const [packed] = JSON.parse(stdout);
  tarball = { name: packed.filename, files: packed.files.map((f) => f.path).sort() };
  const project = path.join(scratch, 'quest-page');
  await run('mkdir', ['-p', project]);
  await writeFile(path.join(project, 'package.json'), JSON.stringify({ name: 'quest-page', private: true, type: 'module' }));
  await writeFile(path.join(project, 'tsconfig.json'), JSON.stringify(TSCONFIG, null, 2));
  await run('npm', ['install', '--offline', '--no-audit', '--no-fund', path.join(scratch, tarball.name)], { cwd: project });
});

after(async () => {
  if (scratch) await rm(scratch, { recursive: true, force: true });
});

async function check(page) {
  const project = path.join(scratch, 'quest-page');
  await writeFile(path.join(project, 'page.ts'), page);
  try {
    await run(process.execPath, [tsc, '-p', project]);
    return { ok: true, output: '' };
  } catch (error) {
    return { ok: false, output: error.stdout + error.stderr };
  }
}

test('npm pack makes gra-overlay-page-<version>.tgz with the library, its types and the server', () => {
  assert.equal(tarball.name, `gra-overlay-page-${version}.tgz`);
  assert.deepEqual(tarball.files, ['gra-overlay.d.ts', 'gra-overlay.js', 'package.json', 'serve.mjs']);
});

test('a page that uses the installed package passes a strict TypeScript check', async () => {
  const result = await check(GOOD_PAGE);
  assert.ok(result.ok, result.output);
});

test('a page that saves a file the program does not keep fails the check', async () => {
  const result = await check(GOOD_PAGE.replace("overlay.save('gra_pad.json'", "overlay.save('quests.json'"));
  assert.equal(result.ok, false);
  assert.match(result.output, /page\.ts\(9,.*error TS2345: Argument of type '"quests\.json"' is not assignable to parameter of type 'PageFileName'/);
});

test('a mistyped event name fails the check', async () => {
  const result = await check(GOOD_PAGE.replace("overlay.on('show'", "overlay.on('shwo'"));
  assert.equal(result.ok, false);
  assert.match(result.output, /page\.ts\(4,.*error TS/);
});

// The first page of docs/page-api.md, as a page author follows it: the library and its types copied
// from the installed package beside page.js, and the document's tsconfig.json.
test('the first page of the page author\'s guide passes the guide\'s strict check, and its mistakes fail it', async () => {
  const guide = await readFile(path.join(here, '../../docs/page-api.md'), 'utf8');
  const block = (after, language) => {
    const start = guide.indexOf(after);
    assert.ok(start >= 0, after);
    const match = guide.slice(start).match(new RegExp('```' + language + '\\n([\\s\\S]*?)```'));
    return match[1];
  };
  const page = block('`page.js`:', 'js');
  const tsconfig = block('### 4. Check it with TypeScript', 'json');
  const folder = path.join(scratch, 'first-page');
  await mkdir(folder, { recursive: true });
  for (const name of ['gra-overlay.js', 'gra-overlay.d.ts']) {
    await copyFile(path.join(scratch, 'quest-page/node_modules/gra-overlay-page', name), path.join(folder, name));
  }
  await writeFile(path.join(folder, 'tsconfig.json'), tsconfig);
  const checkPage = async (text) => {
    await writeFile(path.join(folder, 'page.js'), text);
    try {
      await run(process.execPath, [tsc, '-p', folder]);
      return { ok: true, output: '' };
    } catch (error) {
      return { ok: false, output: error.stdout + error.stderr };
    }
  };
  const good = await checkPage(page);
  assert.ok(good.ok, good.output);
  const saved = await checkPage(`${page}overlay.save('quests.json', '[]');\n`);
  assert.equal(saved.ok, false);
  assert.match(saved.output, /error TS2345: Argument of type '"quests\.json"'/);
  const mistyped = await checkPage(page.replace("overlay.on('show'", "overlay.on('shwo'"));
  assert.equal(mistyped.ok, false);
  assert.match(mistyped.output, /error TS2345: Argument of type '"shwo"'/);
});

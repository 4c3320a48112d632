// Every scene `vektps gltf` writes passes the Khronos glTF validator without an error: the bundled
// documents, generated ones of both schemas and, when ../shared/corpora is there, a document
// holding each real-world GLB sample (malformed ones too) as an annotation's graphic.
// Usage: node ValidateScenes.cjs VEKTPS VEKTPS_GENERATE OUT_DIR DOCUMENT... (NODE_PATH names
// web/'s node_modules).
'use strict';
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const validator = require('gltf-validator');

const [tool, generator, outDir, ...documents] = process.argv.slice(2);
const generated = [
  ['current', 40, 1], ['current', 300, 2], ['current', 2000, 3], ['legacy', 40, 4], ['legacy', 300, 5],
].map(([schema, objects, seed]) => {
  const file = path.join(outDir, `generated_${schema}_${objects}.xml`);
  execFileSync(generator, ['--schema', schema, '-n', String(objects), '--seed', String(seed), '-o', file],
    { stdio: 'ignore' });
  return file;
});

const corpus = path.resolve(__dirname, '../../../shared/corpora/glb');
if (fs.existsSync(corpus)) {
  const annotations = fs.readdirSync(corpus, { recursive: true }).filter((name) => name.endsWith('.glb')).map((name, k) =>
    `<TPS><TPSId Name="${name}" Uuid="glb-${k}"/><TPSLoc Type="1" Id="${k + 1}" Status="0"/>` +
    `<Rep Type="2"><Buf>${fs.readFileSync(path.join(corpus, name)).toString('base64')}</Buf></Rep></TPS>`);
  const file = path.join(outDir, 'glb_corpus.xml');
  fs.writeFileSync(file, '<Functional_Tolerancing_Annotation><AnnotationSet><TPSId Name="GLB samples"/>' +
    `<TPSLoc Id="1"/></AnnotationSet><RootTPSs>${annotations.join('')}</RootTPSs></Functional_Tolerancing_Annotation>`);
  generated.push(file);
} else {
  console.log(`note: no ${corpus}, the real-world GLB samples are not checked`);
}

async function main() {
  let failed = false;
  for (const document of [...documents, ...generated]) {
    const glb = path.join(outDir, `${path.basename(document)}.glb`);
    execFileSync(tool, ['gltf', document, '-o', glb]);
    const { issues } = await validator.validateBytes(new Uint8Array(fs.readFileSync(glb)), { maxIssues: 20 });
    const errors = issues.messages.filter((message) => message.severity === 0);
    console.log(`${path.basename(document)}: ${issues.numErrors} errors, ${issues.numWarnings} warnings, ` +
      `${issues.numInfos} infos`);
    for (const error of errors) console.log(`  ${error.code} ${error.pointer || ''}: ${error.message}`);
    failed ||= issues.numErrors > 0;
  }
  process.exit(failed ? 1 : 0);
}

main().catch((error) => {
  console.error(error.stack || String(error));
  process.exit(1);
});
